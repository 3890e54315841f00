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

static void logLine(int* log, const char* path, const char* line, size_t length,
                    bool isAsTheAgent) {
  if (!isAsTheAgent) {
    put(*log, line, length);
    return;
  }
  close(*log);
  *log = openLog(path);
  put(*log, line, length - 1);
  put(*log, line + length - 1, 1);
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

int main(int argc, char** argv) {
  if (argc != 6 && argc != 8) {
    fputs("usage: post_loop URL KEY RECORDED ACTIVITY LOG [CURSOR SAVES]\n", stderr);
    return 2;
  }
  size_t recordedLength;
  size_t activityLength;
  char* at = contentOf(argv[3], &recordedLength);
  const char* line = contentOf(argv[4], &activityLength);
  const char* const end = at + recordedLength;
  const char* const lastLine = line + activityLength;
  const bool isAsTheAgent = argc == 8;
  size_t cursorLength = 0;
  const char* cursor = isAsTheAgent ? contentOf(argv[6], &cursorLength) : NULL;
  const size_t saves = isAsTheAgent ? strtoul(argv[7], NULL, 10) : 0;
  char saved[512];
  snprintf(saved, sizeof saved, "%s.cursor", argv[5]);
  int log = openLog(argv[5]);
  CURL* curl = newHandle(argv[2]);
  char url[1024];
  const size_t base = strlen(argv[1]);
  if (base >= sizeof url) return 2;
  memcpy(url, argv[1], base);

  mark();
  const char* const begin = at;
  size_t done = 0;
  while (at < end) {
    char* path;
    const size_t length = strtoul(at, &path, 10);
    char* const feed = strchr(++path, '\n');
    const size_t pathLength = (size_t)(feed - path);
    if (base + pathLength >= sizeof url) return 2;
    memcpy(url + base, path, pathLength);
    url[base + pathLength] = '\0';
    curl_easy_setopt(curl, CURLOPT_URL, url);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, (curl_off_t)length);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, feed + 1);
    if (curl_easy_perform(curl) != CURLE_OK) fail("request");
    const char* const next = memchr(line, '\n', (size_t)(lastLine - line));
    if (next == NULL) fail("activity line");
    logLine(&log, argv[5], line, (size_t)(next + 1 - line), isAsTheAgent);
    line = next + 1;
    at = feed + 1 + length;
    if (saves * (size_t)(at - begin) >= (done + 1) * recordedLength) {
      ++done;
      save(saved, cursor, cursorLength / saves * done);
    }
  }
  mark();
  pause();
}
