// For the memory sanitizer: functions of libraries that were compiled without it, each wrapped so
// that what it reads is looked at and what it writes counts as initialised. Linked into everything
// in such builds, with --wrap (cmake/memory_sanitizer.cmake), and itself not instrumented.
#include <dlfcn.h>
#include <openssl/hmac.h>
#include <sanitizer/msan_interface.h>

#include <cstddef>
#include <cstdlib>

namespace {

constexpr std::size_t kDigestSize = 20;
constexpr std::size_t kUuidSize = 16;
constexpr std::size_t kHashStateSize = 96;  // SHA_CTX, which its header calls deprecated

}  // namespace

extern "C" {

int __real_SHA1_Init(void* state);
int __real_SHA1_Update(void* state, const void* data, std::size_t len);
int __real_SHA1_Final(unsigned char* digest, void* state);
decltype(HMAC) __real_HMAC;
void __real_uuid_generate(unsigned char* out);
void* __interceptor_malloc(std::size_t size);
void __interceptor_free(void* block);

int __wrap_SHA1_Init(void* state) {
  const int result = __real_SHA1_Init(state);
  __msan_unpoison(state, kHashStateSize);
  return result;
}

int __wrap_SHA1_Update(void* state, const void* data, std::size_t len) {
  __msan_check_mem_is_initialized(state, kHashStateSize);
  __msan_check_mem_is_initialized(data, len);
  return __real_SHA1_Update(state, data, len);
}

int __wrap_SHA1_Final(unsigned char* digest, void* state) {
  __msan_check_mem_is_initialized(state, kHashStateSize);
  const int result = __real_SHA1_Final(digest, state);
  __msan_unpoison(digest, kDigestSize);
  return result;
}

unsigned char* __wrap_HMAC(const EVP_MD* method, const void* key, int key_len,
                           const unsigned char* data, std::size_t len, unsigned char* digest,
                           unsigned int* digest_len) {
  __msan_check_mem_is_initialized(key, static_cast<std::size_t>(key_len));
  __msan_check_mem_is_initialized(data, len);
  // The first call reads libcrypto's own files.
  __msan_scoped_disable_interceptor_checks();
  unsigned char* const result = __real_HMAC(method, key, key_len, data, len, digest, digest_len);
  __msan_scoped_enable_interceptor_checks();
  __msan_unpoison(digest, kDigestSize);
  __msan_unpoison(digest_len, sizeof *digest_len);
  return result;
}

void __wrap_uuid_generate(unsigned char* out) {
  __real_uuid_generate(out);
  __msan_unpoison(out, kUuidSize);
}

// std::ctype<char>::_M_widen_init() const compares tables of its own. libstdc++ calls it, too, so
// this definition stands in front of its.
void _ZNKSt5ctypeIcE13_M_widen_initEv(const void* facet) {
  static auto* const real =
      reinterpret_cast<void (*)(const void*)>(dlsym(RTLD_NEXT, "_ZNKSt5ctypeIcE13_M_widen_initEv"));
  __msan_scoped_disable_interceptor_checks();
  real(facet);
  __msan_scoped_enable_interceptor_checks();
}

// Exceptions of its own types libstdc++ writes itself, too.
void* __cxa_allocate_exception(std::size_t size) noexcept {
  static auto* const real =
      reinterpret_cast<void* (*)(std::size_t)>(dlsym(RTLD_NEXT, "__cxa_allocate_exception"));
  void* const exception = real(size);
  __msan_unpoison(exception, size);
  return exception;
}

}  // extern "C"

// libstdc++ writes much of the memory of C++, which therefore counts as initialised. The library
// has none: it calls malloc.
void* operator new(std::size_t size) {
  void* const block = __interceptor_malloc(size);
  if (block == nullptr) std::abort();
  __msan_unpoison(block, size);
  return block;
}
void operator delete(void* block) noexcept { __interceptor_free(block); }
void operator delete(void* block, std::size_t /*size*/) noexcept { __interceptor_free(block); }
