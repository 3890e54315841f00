/* The service of the benchmarks: takes every request and answers it with 200 and a fixed run, over
   kept connections on a loopback port that the system picks and this prints. It looks at nothing
   but the request's length, so that what is measured is who sends.

     sink [--record FILE] [--arrivals]

   GET /stats is answered with what came so far. --record writes every request but heartbeats as
   "LENGTH PATH", a line feed and the body, one behind the other, for post_loop. --arrivals prints,
   for each of these, the moment at which its last byte was read (nanoseconds of
   CLOCK_MONOTONIC). A thread a connection: with blocking reads a request is one recv and one send,
   the fewest that a server can do with. */

#define _GNU_SOURCE
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum { kBuffer = 256 * 1024 };

static atomic_long requests;
static atomic_long bytes; /* of them, heads included */
static atomic_long heartbeats;
static FILE* record;
static bool printsArrivals;

static void fail(const char* what) {
  perror(what);
  exit(1);
}

static bool sendAll(int connection, const char* text, size_t length) {
  while (length > 0) {
    const ssize_t count = send(connection, text, length, 0);
    if (count <= 0) return false;
    text += count;
    length -= (size_t)count;
  }
  return true;
}

static bool answer(int connection, const char* body, size_t length) {
  char text[512];
  const int written = snprintf(text, sizeof text,
                               "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                               "Content-Length: %zu\r\n\r\n%s",
                               length, body);
  return sendAll(connection, text, (size_t)written);
}

/* The run of the present day: with another day the agent would ask for a run at every event. */
static bool answerRun(int connection) {
  static _Thread_local char text[256];
  static _Thread_local int length;
  static _Thread_local time_t day = -1;
  const time_t now = time(NULL);
  if (now / 86400 != day) {
    day = now / 86400;
    struct tm parts;
    char date[16];
    strftime(date, sizeof date, "%Y-%m-%d", gmtime_r(&now, &parts));
    length = snprintf(text, sizeof text,
                      "{\"run_id\":\"run-of-the-benchmark\",\"workflow_id\":\"workflow-1\","
                      "\"started_at\":\"%sT00:00:00.000Z\",\"date\":\"%s\",\"created\":true}",
                      date, date);
  }
  return answer(connection, text, (size_t)length);
}

static bool answerStats(int connection) {
  char text[128];
  const int length =
      snprintf(text, sizeof text, "{\"requests\":%ld,\"bytes\":%ld,\"heartbeats\":%ld}",
               atomic_load(&requests), atomic_load(&bytes), atomic_load(&heartbeats));
  return answer(connection, text, (size_t)length);
}

static void arrived(size_t length) {
  atomic_fetch_add(&bytes, (long)length);
  atomic_fetch_add(&requests, 1);
  if (!printsArrivals) return;
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  printf("%lld\n", now.tv_sec * 1000000000LL + now.tv_nsec);
  fflush(stdout);
}

/* Reads one request, of which `*filled` bytes are in `buffer` already, and answers it; what came
   behind it is moved to the front. False at the end of the connection. */
static bool serve(int connection, char* buffer, size_t* filled) {
  static _Thread_local char piece[kBuffer];
  char* end;
  while ((end = memmem(buffer, *filled, "\r\n\r\n", 4)) == NULL) {
    const ssize_t count = recv(connection, buffer + *filled, kBuffer - *filled, 0);
    if (count <= 0) return false;
    *filled += (size_t)count;
  }
  *end = '\0';
  const size_t head = (size_t)(end - buffer) + 4;
  const char* field = strcasestr(buffer, "\r\nContent-Length:");
  const size_t length = field == NULL ? 0 : strtoul(field + 17, NULL, 10);
  const bool isStats = strncmp(buffer, "GET /stats", 10) == 0;
  const char* path = strchr(buffer, ' ');
  const char* pathEnd = path == NULL ? NULL : strchr(path + 1, ' ');
  if (pathEnd == NULL) return false;
  const bool isHeartbeat = memmem(path, (size_t)(pathEnd - path), "/heartbeat/", 11) != NULL;
  const bool isRecorded = record != NULL && !isStats && !isHeartbeat;
  if (isRecorded) fprintf(record, "%zu %.*s\n", length, (int)(pathEnd - path - 1), path + 1);
  if (strcasestr(buffer, "\r\nExpect: 100-continue") != NULL &&
      !sendAll(connection, "HTTP/1.1 100 Continue\r\n\r\n", 25)) {
    return false;
  }

  const size_t there = *filled - head < length ? *filled - head : length;
  if (isRecorded) fwrite(buffer + head, 1, there, record);
  for (size_t rest = length - there; rest > 0;) {
    const ssize_t count = recv(connection, piece, rest < sizeof piece ? rest : sizeof piece, 0);
    if (count <= 0) return false;
    if (isRecorded) fwrite(piece, 1, (size_t)count, record);
    rest -= (size_t)count;
  }
  *filled -= head + there;
  memmove(buffer, buffer + head + there, *filled);
  if (isRecorded) fflush(record);
  if (isStats) return answerStats(connection);
  if (isHeartbeat) {
    atomic_fetch_add(&heartbeats, 1);
  } else {
    arrived(head + length);
  }
  return answerRun(connection);
}

static void* serveConnection(void* context) {
  const int connection = (int)(long)context;
  static _Thread_local char buffer[kBuffer];
  size_t filled = 0;
  while (serve(connection, buffer, &filled)) {
  }
  close(connection);
  return NULL;
}

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--record") == 0 && i + 1 < argc) {
      record = fopen(argv[++i], "wb");
      if (record == NULL) fail(argv[i]);
    } else if (strcmp(argv[i], "--arrivals") == 0) {
      printsArrivals = true;
    }
  }
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  socklen_t length = sizeof address;
  if (listener < 0 || bind(listener, (struct sockaddr*)&address, length) != 0 ||
      listen(listener, 16) != 0 ||
      getsockname(listener, (struct sockaddr*)&address, &length) != 0) {
    fail("cannot listen");
  }
  printf("%d\n", ntohs(address.sin_port));
  fflush(stdout);
  for (;;) {
    const int connection = accept(listener, NULL, NULL);
    if (connection < 0) fail("accept");
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    pthread_t thread;
    if (pthread_create(&thread, NULL, serveConnection, (void*)(long)connection) != 0) {
      fail("thread");
    }
    pthread_detach(thread);
  }
}
