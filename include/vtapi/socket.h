/*
 * Sockets, IPv4 only. Every call blocks, sets no socket option, keeps no state and logs what came
 * of it. Ports are in host byte order unless stated; only their low 16 bits are used.
 */
#ifndef VTAPI_SOCKET_H
#define VTAPI_SOCKET_H

#include <netinet/in.h>

#include "vtapi/base.h"

VT_BEGIN_DECLS

/* SocketEndpoint: 36 bytes, also the head of a Session. */
typedef struct SocketEndpoint {
  int32_t descriptor;        /* 0: -1 when there is no connection */
  struct sockaddr_in local;  /* 4: network byte order */
  struct sockaddr_in remote; /* 20: network byte order */
} SocketEndpoint;

/*
 * openConnectedSocket connects to a dotted-quad address and returns the descriptor, which it also
 * stores, with both addresses, in the endpoint. -1 only when no socket can be created. Deliberate:
 * a failed connect is logged (ERROR) and the unconnected descriptor returned all the same; the
 * first send tells.
 */
VT_API int openConnectedSocket(SocketEndpoint* endpoint, const char* address, uint32_t port);

/* createUdpSocket returns a UDP descriptor bound to the port on every local address, or -1. */
VT_API int createUdpSocket(uint32_t port);

/* bindUdpSocket binds fd to the port on every local address; returns fd, or -1 (fd stays open). */
VT_API int bindUdpSocket(int fd, uint32_t port);

/*
 * bindTcpListener binds fd to the port (0: a free one) on every local address and returns the port
 * it is bound to, or -1 (fd stays open). It does not listen.
 */
VT_API int bindTcpListener(int fd, uint32_t port);

/* closeSocket closes fd and returns 0, whatever came of it. */
VT_API int closeSocket(int fd);

/* vtn_getErrorCode returns the calling thread's errno. */
VT_API int vtn_getErrorCode(void);

VT_END_DECLS

#endif /* VTAPI_SOCKET_H */
