// What went wrong, as a value: an Error, or an Expected that holds either a result or an Error.
// Nothing here throws but Expected::value(), and that only where exceptions are enabled.
#ifndef VTAPI_FACE_ERROR_HPP
#define VTAPI_FACE_ERROR_HPP

#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#if defined(__cpp_exceptions)
#include <stdexcept>
#endif

namespace voltaris {

// Cause is the class of an Error.
enum class Cause {
  kNoMemory,        // the library had none left
  kNoDescriptor,    // the process has none left
  kBadAddress,      // no IPv4 address and TCP port that can be connected to
  kBadIdentity,     // an identity of another length
  kBadDomain,       // a domain that holds a zero byte
  kBadAttribute,    // an attribute that this kind of query cannot read or set
  kBadValue,        // a value that is out of range or cannot travel as it is
  kBadQualifier,    // a qualifier that cannot travel as it is
  kBadTimeout,      // a time-out of a query outside of 1 to 180 seconds
  kTooLong,         // a query that does not fit into one message
  kUsed,            // the object was executed, taken or moved from before
  kKeyFile,         // the key file cannot be read; number is the errno
  kKeyPermissions,  // others may open the key file, or it belongs to somebody else
  kKeyContent,      // the key file holds no key
  kIncomplete       // an answer that did not come to its end; number is the errno
};

// Error is a cause, a text for people that names what is concerned, and an errno or 0.
struct Error {
  Cause cause;
  std::string text;
  int number = 0;

  friend bool operator==(const Error&, const Error&) = default;
};

#if defined(__cpp_exceptions)
// Exception is what Expected::value() throws.
class Exception : public std::runtime_error {
 public:
  explicit Exception(Error error) : std::runtime_error(error.text), error_(std::move(error)) {}

  const Error& error() const noexcept { return error_; }

 private:
  Error error_;
};
#endif

namespace detail {

// Texts are made in calls of their own, off the course that succeeds; g++ 12 warns without reason
// of strings that it joins in line.
#if defined(__GNUC__)
#define VTAPI_FACE_COLD [[gnu::noinline, gnu::cold]]
#else
#define VTAPI_FACE_COLD
#endif

// Join puts texts one behind the other.
VTAPI_FACE_COLD inline std::string Join(std::initializer_list<std::string_view> parts) {
  std::string joined;
  for (const std::string_view part : parts) joined += part;
  return joined;
}

// MakeError is an Error whose text is these parts.
VTAPI_FACE_COLD inline Error MakeError(Cause cause, std::initializer_list<std::string_view> parts,
                                       int number = 0) {
  return {cause, Join(parts), number};
}

// Raise throws, or ends the process where there are no exceptions.
[[noreturn]] inline void Raise(const Error& error) {
#if defined(__cpp_exceptions)
  throw Exception(error);
#else
  (void)error;
  std::abort();
#endif
}

}  // namespace detail

// Expected holds a T or the Error that stands in its place. It tests as true when it holds a T. The
// operators * and -> are for one that does; they end the process otherwise.
template <class T>
class [[nodiscard]] Expected {
 public:
  // Not explicit: results and errors turn into what holds them where they are returned.
  // cppcheck-suppress noExplicitConstructor
  Expected(T result) : state_(std::in_place_index<0>, std::move(result)) {}
  // cppcheck-suppress noExplicitConstructor
  Expected(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

  bool has_value() const noexcept { return state_.index() == 0; }
  explicit operator bool() const noexcept { return has_value(); }

  T& operator*() & { return Held(); }
  const T& operator*() const& { return Held(); }
  T&& operator*() && { return std::move(Held()); }
  T* operator->() { return &Held(); }
  const T* operator->() const { return &Held(); }

  // value returns the T; without one it throws Exception, or ends the process where exceptions are
  // disabled.
  T& value() & {
    Check();
    return Held();
  }
  const T& value() const& {
    Check();
    return Held();
  }
  T value() && {
    Check();
    return std::move(Held());
  }

  // error returns the Error of one that holds no T; it ends the process otherwise.
  const Error& error() const {
    const Error* held = std::get_if<1>(&state_);
    if (held == nullptr) std::abort();
    return *held;
  }

 private:
  void Check() const {
    if (!has_value()) detail::Raise(error());
  }
  T& Held() { return const_cast<T&>(std::as_const(*this).Held()); }
  const T& Held() const {
    const T* held = std::get_if<0>(&state_);
    if (held == nullptr) std::abort();
    return *held;
  }

  std::variant<T, Error> state_;
};

// Expected<void> is success or an Error.
template <>
class [[nodiscard]] Expected<void> {
 public:
  Expected() = default;
  // cppcheck-suppress noExplicitConstructor
  Expected(Error error) : error_(std::move(error)) {}

  bool has_value() const noexcept { return !error_.has_value(); }
  explicit operator bool() const noexcept { return has_value(); }

  // value throws Exception, or ends the process where exceptions are disabled, unless all is well.
  void value() const {
    if (error_) detail::Raise(*error_);
  }
  const Error& error() const {
    if (!error_) std::abort();
    return *error_;
  }

 private:
  std::optional<Error> error_;
};

}  // namespace voltaris

#endif  // VTAPI_FACE_ERROR_HPP
