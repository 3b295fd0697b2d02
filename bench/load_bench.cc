// P10: loading and unloading the library against libcoap as it comes without TLS, which is of a
// like size and purpose.
//
// libcrypto and libuuid are there already, as in any process that has other use for them; libcrypto
// cannot be unloaded anyway. What is compared is what each library itself costs to map, relocate
// and initialise, with all names bound.
#include <dlfcn.h>

#include <cstdint>

#include "bench/measure.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

constexpr char kOurs[] = "libvtapi.so.0";
constexpr std::size_t kLoads = 16;

void* Open(const char* file) {
  void* const library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) std::fprintf(stderr, "bench: %s\n", dlerror());
  Require(library != nullptr, "a library cannot be loaded");
  return library;
}

bool IsLoaded(const char* file) {
  void* const library = dlopen(file, RTLD_NOW | RTLD_NOLOAD);
  if (library != nullptr) dlclose(library);
  return library != nullptr;
}

// A library that stays, or was there before, would cost nothing to load again.
void CheckLoading(const char* file, const char* symbol) {
  Require(!IsLoaded(file), "a library is loaded already");
  void* const library = Open(file);
  Require(dlsym(library, symbol) != nullptr && IsLoaded(file),
          "a library is not what it should be");
  dlclose(library);
  Require(!IsLoaded(file), "a library is not unloaded");
}

double LoadOften(const char* file) {
  return TimeNs([=] {
    for (std::size_t i = 0; i < kLoads; ++i) dlclose(Open(file));
  });
}

class Held {
 public:
  explicit Held(const char* file) : library_(Open(file)) {}
  ~Held() { dlclose(library_); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

 private:
  void* library_;
};

void Load(benchmark::State& state) {
  const Held crypto("libcrypto.so.3");
  const Held uuid("libuuid.so.1");
  CheckLoading(kOurs, "voltaris_createSession");
  CheckLoading(VT_LIBCOAP, "coap_new_context");
  CompareInTurn(
      state, kLoads, [] { return LoadOften(kOurs); }, [] { return LoadOften(VT_LIBCOAP); });
}

BENCHMARK(Load)->Name("P10/load")->UseManualTime();

}  // namespace
