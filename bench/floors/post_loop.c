/* The floor of catching up: the same requests without the work that leads to them.

     post_loop URL KEY RECORDED ACTIVITY LOG [CURSOR SAVES]

   Posts the requests that the sink recorded from the agent (RECORDED), in their order and with the
   same headers, over one kept connection of one libcurl handle, and after each writes the agent's
   own activity line (the lines of ACTIVITY) to LOG. Both files are in memory before it begins.
   Less is not possible: a request is one perform of a handle that is set up but for path and body,
   answers are thrown away where they arrive, and a line is one write to a file that stays open.
   With CURSOR, the agent's file after the same requests, it also treats its files as the agent
   must: the log is opened for each line, whose feed is a write of its own, and SAVES times on the
   way a file that grows up to CURSOR's size is written anew, flushed and put in place. Writes the
   line "found" before the first request and behind the last, between which it is measured, and then
   sleeps. */

#define _GNU_SOURCE
#include <curl/curl.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void fail(const char* what) {
  perror(what);
  exit(1);
}

static char* contentOf(const char* path, size_t* length) {
  FILE* file = fopen(path, "rb");
  if (file == NULL || fseek(file, 0, SEEK_END) != 0) fail(path);
  *length = (size_t)ftell(file);
  rewind(file);
  char* content = malloc(*length + 1);
  if (content == NULL || fread(content, 1, *length, file) != *length) fail(path);
  content[*length] = '\0';
  fclose(file);
  return content;
}

static size_t throwAway(char* bytes, size_t one, size_t count, void* context) {
  (void)bytes;
  (void)context;
  return one * count;
}

static CURL* newHandle(const char* key) {
  CURL* curl = curl_easy_init();
  if (curl == NULL) fail("libcurl");
  char keyHeader[256];
  snprintf(keyHeader, sizeof keyHeader, "X-Pel-Key: %s", key);
  struct curl_slist* headers = curl_slist_append(NULL, keyHeader);
  headers = curl_slist_append(headers, "Content-Type: application/json");
  headers = curl_slist_append(headers, "Accept:");
  headers = curl_slist_append(headers, "Expect:");
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, (long)CURL_HTTP_VERSION_1_1);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, throwAway);
  return curl;
}

static int openLog(const char* path) {
  const int log = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (log < 0) fail(path);
  return log;
}

static void put(int file, const char* bytes, size_t length) {
  for (ssize_t count = 0; length > 0; bytes += count, length -= (size_t)count) {
    count = write(file, bytes, length);
    if (count < 0) fail("write");
  }
}

static void save(const char* path, const char* bytes, size_t length) {
  char temporary[1024];
  snprintf(temporary, sizeof temporary, "%s.tmp", path);
  const int file = open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) fail(temporary);
  put(file, bytes, length);
  if (fsync(file) != 0 || close(file) != 0 || rename(temporary, path) != 0) fail(path);
}

static void mark(void) {
  if (write(STDERR_FILENO, "found\n", 6) != 6) exit(1);
}

/* The activity log and the cursor file, which are kept as the agent must where there are saves. */
static struct {
  const char* logPath;
  int log;
  char cursorPath[512];
  const char* cursor;
  size_t cursorLength;
  size_t saves;
  size_t done;
} files;

static void keepFiles(const char* logPath, const char* cursor, const char* saves) {
  files.logPath = logPath;
  files.log = openLog(logPath);
  if (cursor == NULL) return;
  snprintf(files.cursorPath, sizeof files.cursorPath, "%s.cursor", logPath);
  files.cursor = contentOf(cursor, &files.cursorLength);
  files.saves = strtoul(saves, NULL, 10);
}

static void logLine(const char* line, size_t length) {
  if (files.saves == 0) {
    put(files.log, line, length);
    return;
  }
  close(files.log);
  files.log = openLog(files.logPath);
  put(files.log, line, length - 1);
  put(files.log, line + length - 1, 1);
}

static void saveWhenDue(size_t sent, size_t all) {
  if (files.saves == 0 || files.saves * sent < (files.done + 1) * all) return;
  ++files.done;
  save(files.cursorPath, files.cursor, files.cursorLength / files.saves * files.done);
}

/* Posts the request at `at`, LENGTH PATH LF BODY, to the base that `url` begins with, and returns
   what follows it. */
static char* post(CURL* curl, char* url, size_t base, size_t most, char* at) {
  const size_t length = strtoul(at, NULL, 10);
  const char* const path = strchr(at, ' ') + 1;
  char* const feed = strchr(path, '\n');
  const size_t pathLength = (size_t)(feed - path);
  if (base + pathLength >= most) fail("URL");
  memcpy(url + base, path, pathLength);
  url[base + pathLength] = '\0';
  curl_easy_setopt(curl, CURLOPT_URL, url);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, (curl_off_t)length);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, feed + 1);
  if (curl_easy_perform(curl) != CURLE_OK) fail("request");
  return feed + 1 + length;
}

int main(int argc, char** argv) {
  if (argc != 6 && argc != 8) {
    fputs("usage: post_loop URL KEY RECORDED ACTIVITY LOG [CURSOR SAVES]\n", stderr);
    return 2;
  }
  size_t recordedLength;
  size_t activityLength;
  char* const recorded = contentOf(argv[3], &recordedLength);
  const char* line = contentOf(argv[4], &activityLength);
  const char* const lastLine = line + activityLength;
  keepFiles(argv[5], argc == 8 ? argv[6] : NULL, argc == 8 ? argv[7] : NULL);
  CURL* curl = newHandle(argv[2]);
  char url[1024];
  const size_t base = strlen(argv[1]);
  if (base >= sizeof url) return 2;
  memcpy(url, argv[1], base);

  mark();
  for (char* at = recorded; at < recorded + recordedLength;) {
    at = post(curl, url, base, sizeof url, at);
    const char* const feed = memchr(line, '\n', (size_t)(lastLine - line));
    if (feed == NULL) fail("activity line");
    logLine(line, (size_t)(feed + 1 - line));
    line = feed + 1;
    saveWhenDue((size_t)(at - recorded), recordedLength);
  }
  mark();
  pause();
}
