/*
 * A small library, or with SAMPLE_PROGRAM a program, that has each property which
 * scripts/check-binary looks for when it is built right. check_binary_finds_faults builds it wrong
 * in many ways.
 */
#include <netinet/in.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#ifdef SAMPLE_CHECKED_RECEIVE
/* What a compiler may make of the call when all calls are checked. */
ssize_t __recvfrom_chk(int fd, void* data, size_t size, size_t room, int flags,
                       struct sockaddr* sender, socklen_t* length);
#define recvfrom(fd, data, size, flags, sender, length) \
  __recvfrom_chk(fd, data, size, size, flags, sender, length)
#endif

#ifndef SAMPLE_NAME
#define SAMPLE_NAME sample
#endif

#ifdef SAMPLE_WEAK
__attribute__((weak))
#endif
int SAMPLE_NAME(const char* text, size_t size, int fd) {
  char copy[32];
  struct sockaddr_in address;
  socklen_t length = sizeof address;
  struct pollfd watched = {fd, POLLIN, 0};
  struct epoll_event event = {EPOLLIN, {NULL}};
  struct timespec now;
  char* grown;

  memset(&address, 0, sizeof address);
  memcpy(copy, text, size);
  fprintf(stderr, "%s %zu\n", text, size);
  fd = socket(AF_INET, SOCK_STREAM, 0);
  if (connect(fd, (struct sockaddr*)&address, length) < 0) return bind(fd, NULL, 0);
  if (getsockname(fd, (struct sockaddr*)&address, &length) < 0) return -1;
  if (accept(fd, (struct sockaddr*)&address, &length) < 0) return -1;
  if (recvfrom(fd, copy, sizeof copy, 0, NULL, NULL) < 0) return -1;
  if (send(fd, copy, sizeof copy, 0) < 0 || poll(&watched, 1, 0) < 0) return -1;
  if (clock_gettime(CLOCK_MONOTONIC, &now) < 0) return -1;
  if (epoll_ctl(epoll_create1(0), EPOLL_CTL_ADD, fd, &event) < 0) return -1;
  if (epoll_wait(fd, &event, 1, 0) < 0) return -1;
  close(fd);
  grown = realloc(malloc(size), 2 * size);
  fprintf(stderr, "%p %p %s\n", (void*)grown, calloc(size, 2), copy);
  free(grown);
  return 0;
}

#ifdef SAMPLE_RELOCATED
/* An address within the code, which the loader has to fill in. */
__asm__(
    ".text\n"
    ".globl relocated\n"
    ".hidden relocated\n"
    "relocated:\n"
#ifdef __i386__
    ".long stderr\n"
#else
    ".quad stderr\n"
#endif
);
#endif

#ifdef SAMPLE_PROGRAM
int main(int argc, char** argv) { return SAMPLE_NAME(argv[0], (size_t)argc, 0); }
#endif
