// The error numbers that system calls can have.
#ifndef VT_TESTS_TRUST_ERROR_NUMBERS_H_
#define VT_TESTS_TRUST_ERROR_NUMBERS_H_

#include <cerrno>
#include <cstddef>
#include <optional>

#include "tests/harness/note.h"

namespace vt::testing {

// What the manual pages of the calls list, those of sockets, IP and TCP included, and what the
// network can report late.
inline constexpr int kSocketErrors[] = {EACCES, EAFNOSUPPORT,    EINTR,   EINVAL,
                                        EMFILE, ENFILE,          ENOBUFS, ENOMEM,
                                        ENOSYS, EPROTONOSUPPORT, EPERM,   ESOCKTNOSUPPORT};
inline constexpr int kConnectErrors[] = {
    EACCES,       EADDRINUSE,   EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN,      EALREADY,
    EBADF,        ECONNABORTED, ECONNREFUSED,  ECONNRESET,   EFAULT,      EHOSTDOWN,
    EHOSTUNREACH, EINPROGRESS,  EINTR,         EINVAL,       EIO,         EISCONN,
    ENETDOWN,     ENETUNREACH,  ENOBUFS,       ENOMEM,       ENOPROTOOPT, ENOTSOCK,
    EOPNOTSUPP,   EPERM,        EPIPE,         EPROTO,       EPROTOTYPE,  ETIMEDOUT};
inline constexpr int kGetsocknameErrors[] = {EBADF,   EFAULT,   EINTR,      EINVAL,
                                             ENOBUFS, ENOTCONN, EOPNOTSUPP, ENOTSOCK};
inline constexpr int kSendErrors[] = {
    EACCES,     EADDRNOTAVAIL, EAGAIN,     EALREADY,  EBADF,        ECONNABORTED, ECONNREFUSED,
    ECONNRESET, EDESTADDRREQ,  EFAULT,     EHOSTDOWN, EHOSTUNREACH, EINTR,        EINVAL,
    EIO,        EISCONN,       EMSGSIZE,   ENETDOWN,  ENETUNREACH,  ENOBUFS,      ENOMEM,
    ENOTCONN,   ENOTSOCK,      EOPNOTSUPP, EPERM,     EPIPE,        EPROTO,       ETIMEDOUT};
inline constexpr int kReadErrors[] = {EACCES,     EAGAIN, EBADF,       ECONNABORTED, ECONNREFUSED,
                                      ECONNRESET, EFAULT, EHOSTDOWN,   EHOSTUNREACH, EINTR,
                                      EINVAL,     EIO,    EMSGSIZE,    ENETDOWN,     ENETUNREACH,
                                      ENOBUFS,    ENOMEM, ENOPROTOOPT, ENOTCONN,     ENOTSOCK,
                                      EOPNOTSUPP, EPERM,  EPIPE,       EPROTO,       ETIMEDOUT};
// Waits that fail with these are repeated; those with the others never become better.
inline constexpr int kRepeatedWaitErrors[] = {EAGAIN, EFAULT, EINTR, ENOMEM, EPERM};
inline constexpr int kFinalWaitErrors[] = {EBADF, EINVAL};
inline constexpr int kRestartErrno = 512;  // leaks out of the system when accept is traced
inline constexpr int kAcceptErrors[] = {
    EAGAIN, EBADF,           ECONNABORTED,    ECONNRESET, EFAULT,       EHOSTDOWN,  EHOSTUNREACH,
    EINTR,  EINVAL,          EMFILE,          ENETDOWN,   ENETUNREACH,  ENFILE,     ENOBUFS,
    ENOMEM, ENONET,          ENOPROTOOPT,     ENOSR,      ENOTSOCK,     EOPNOTSUPP, EPERM,
    EPROTO, EPROTONOSUPPORT, ESOCKTNOSUPPORT, ETIMEDOUT,  kRestartErrno};
inline constexpr int kBindErrors[] = {
    EACCES,       EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EBADF,   EFAULT,   EINTR, EINVAL, ELOOP,
    ENAMETOOLONG, ENOBUFS,    ENOENT,        ENOMEM,       ENOTDIR, ENOTSOCK, EPERM, EROFS};
inline constexpr int kCloseErrors[] = {EBADF, EDQUOT, EINTR, EIO, ENOSPC};

// What epoll_ctl and epoll_wait can have.
inline constexpr int kWatchErrors[] = {EBADF, EEXIST, EINVAL, ELOOP, ENOENT, ENOMEM, ENOSPC, EPERM};
inline constexpr int kEpollErrors[] = {EINVAL, EMFILE, ENFILE, ENOMEM};

template <std::size_t kCount>
void Report(const char* call, const int (&)[kCount], const char* calls) {
  Note() << call << ": " << kCount << " error numbers in " << calls << "\n";
}

template <class Result>
std::optional<Result> FailWith(int error) {
  errno = error;
  return Result{-1};
}

}  // namespace vt::testing

#endif  // VT_TESTS_TRUST_ERROR_NUMBERS_H_
