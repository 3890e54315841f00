/* The floor of an idle pass: what any program must do that looks for new lines without a memory of
   the folders, endlessly, with `SECONDS` between two passes.

     idle_pass HOME SECONDS

   A pass lists every folder of both trees (openat, getdents64 until it answers 0, close), opens,
   reads and closes each session record, and stats each transcript that is named after a recorded
   session. Less is not possible: a folder's end shows only in an empty answer, a record may have
   changed without its folder changing, and nothing but a stat says how long a file is. All names
   are taken relative to their open folder, which spares the kernel the walk along the path; a
   record is searched for its id instead of parsed; ids are kept as hashes alone. Nothing is
   allocated. As the agent does under --verbose, a pass writes one line, by which passes are
   counted. */

#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

enum { kDeepest = 16, kListing = 32 * 1024, kSlots = 1 << 15, kLongestRecord = 64 * 1024 };

static char listings[kDeepest][kListing]; /* one a depth: an outer folder's is not done yet */
static char text[kLongestRecord];
static unsigned pass;
/* The ids of a pass: a hash table with open addressing, whose slots of other passes are empty. */
static uint64_t ids[kSlots];
static unsigned passOf[kSlots];

static uint64_t hashOf(const char* name, size_t length) {
  uint64_t hash = 0xcbf29ce484222325;
  uint64_t word;
  for (; length >= sizeof word; name += sizeof word, length -= sizeof word) {
    memcpy(&word, name, sizeof word);
    hash = (hash ^ word) * 0x9e3779b97f4a7c15;
    hash ^= hash >> 32;
  }
  for (; length > 0; ++name, --length) hash = (hash ^ (unsigned char)*name) * 0x100000001b3;
  return hash;
}

static size_t slotOf(uint64_t hash) {
  size_t slot = hash % kSlots;
  while (passOf[slot] == pass && ids[slot] != hash) slot = (slot + 1) % kSlots;
  return slot;
}

static void readRecord(int folder, const char* name) {
  const int file = openat(folder, name, O_RDONLY | O_CLOEXEC);
  if (file < 0) return;
  const ssize_t length = read(file, text, sizeof text - 1);
  close(file);
  if (length <= 0) return;
  text[length] = '\0';
  static const char key[] = "\"cliSessionId\"";
  const char* found = memmem(text, (size_t)length, key, sizeof key - 1);
  const char* begin = found == NULL ? NULL : strchr(found + sizeof key - 1, '"');
  const char* end = begin == NULL ? NULL : strchr(begin + 1, '"');
  if (end == NULL) return;
  const uint64_t hash = hashOf(begin + 1, (size_t)(end - begin - 1));
  const size_t slot = slotOf(hash);
  ids[slot] = hash;
  passOf[slot] = pass;
}

static bool endsWith(const char* name, size_t length, const char* ending, size_t endingLength) {
  return length >= endingLength && memcmp(name + length - endingLength, ending, endingLength) == 0;
}

static void onRecordFile(int folder, const char* name) {
  const size_t length = strlen(name);
  if (memcmp(name, "local_", 6) == 0 && endsWith(name, length, ".json", 5)) {
    readRecord(folder, name);
  }
}

static void onTranscriptFile(int folder, const char* name) {
  const size_t length = strlen(name);
  if (!endsWith(name, length, ".jsonl", 6)) return;
  if (passOf[slotOf(hashOf(name, length - 6))] != pass) return;
  struct stat status;
  fstatat(folder, name, &status, 0);
}

struct entry { /* as getdents64 fills it in */
  uint64_t inode;
  int64_t next;
  unsigned short length;
  unsigned char type;
  char name[];
};

static void walk(int above, const char* name, int depth, void (*onFile)(int, const char*)) {
  const int folder = openat(above, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0 || depth == kDeepest) return;
  char* const listing = listings[depth];
  for (;;) {
    const long count = syscall(SYS_getdents64, folder, listing, (size_t)kListing);
    if (count <= 0) break;
    for (long at = 0; at < count;) {
      const struct entry* entry = (const struct entry*)(const void*)(listing + at);
      at += entry->length;
      if (entry->name[0] == '.') continue;
      if (entry->type == DT_DIR) walk(folder, entry->name, depth + 1, onFile);
      if (entry->type == DT_REG) onFile(folder, entry->name);
    }
  }
  close(folder);
}

int main(int argc, char** argv) {
  if (argc != 3 || chdir(argv[1]) != 0) {
    fputs("usage: idle_pass HOME SECONDS\n", stderr);
    return 2;
  }
  const double seconds = strtod(argv[2], NULL);
  const struct timespec pause = {.tv_sec = (time_t)seconds,
                                 .tv_nsec = (long)((seconds - (double)(time_t)seconds) * 1e9)};
  for (;;) {
    ++pass;
    walk(AT_FDCWD, "Library/Application Support/Claude/claude-code-sessions", 0, onRecordFile);
    walk(AT_FDCWD, ".claude/projects", 0, onTranscriptFile);
    if (write(STDERR_FILENO, "found\n", 6) != 6) return 1;
    if (seconds > 0) nanosleep(&pause, NULL);
  }
}
