/* A shared library that does nothing but call what the harness interposes, one function each, so
 * that harness_test.cc can show that such calls arrive at the test executable. */
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

void* probe_malloc(size_t size);
void* probe_calloc(size_t count, size_t size);
void* probe_realloc(void* block, size_t size);
char* probe_strdup(const char* text);
char* probe_strndup(const char* text, size_t limit);
int probe_socket(int domain, int type, int protocol);
int probe_connect(int fd, const struct sockaddr* address, socklen_t len);
int probe_bind(int fd, const struct sockaddr* address, socklen_t len);
int probe_getsockname(int fd, struct sockaddr* address, socklen_t* len);
int probe_accept(int fd, struct sockaddr* address, socklen_t* len);
ssize_t probe_send(int fd, const void* data, size_t len, int flags);
ssize_t probe_recvfrom(int fd, void* data, size_t len, int flags, struct sockaddr* from,
                       socklen_t* from_len);
int probe_poll(struct pollfd* fds, nfds_t count, int timeout_ms);
int probe_close(int fd);

void* probe_malloc(size_t size) { return malloc(size); }
void* probe_calloc(size_t count, size_t size) { return calloc(count, size); }
void* probe_realloc(void* block, size_t size) { return realloc(block, size); }
char* probe_strdup(const char* text) { return strdup(text); }
char* probe_strndup(const char* text, size_t limit) { return strndup(text, limit); }
int probe_socket(int domain, int type, int protocol) { return socket(domain, type, protocol); }
int probe_connect(int fd, const struct sockaddr* address, socklen_t len) {
  return connect(fd, address, len);
}
int probe_bind(int fd, const struct sockaddr* address, socklen_t len) {
  return bind(fd, address, len);
}
int probe_getsockname(int fd, struct sockaddr* address, socklen_t* len) {
  return getsockname(fd, address, len);
}
int probe_accept(int fd, struct sockaddr* address, socklen_t* len) {
  return accept(fd, address, len);
}
ssize_t probe_send(int fd, const void* data, size_t len, int flags) {
  return send(fd, data, len, flags);
}
ssize_t probe_recvfrom(int fd, void* data, size_t len, int flags, struct sockaddr* from,
                       socklen_t* from_len) {
  return recvfrom(fd, data, len, flags, from, from_len);
}
int probe_poll(struct pollfd* fds, nfds_t count, int timeout_ms) {
  return poll(fds, count, timeout_ms);
}
int probe_close(int fd) { return close(fd); }
