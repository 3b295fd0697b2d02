// This program defines functions of its own under names that the library exports as well. The
// dynamic linker gives the program's definitions to everybody who asks; the library must not ask.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vtapi.h"

namespace {

int own_calls = 0;

}  // namespace

extern "C" {

uint32_t enqueue(queue*, void*) {
  ++own_calls;
  return 0;
}

void* dequeue(queue*) {
  ++own_calls;
  return nullptr;
}

void setLogLevel(uint32_t) { ++own_calls; }

FILE* getLogFile(void) {
  ++own_calls;
  return nullptr;
}

int closeSocket(int) {
  ++own_calls;
  return -1;
}

int vtn_getErrorCode(void) {
  ++own_calls;
  return -1;
}

void voltaris_idtos(char*, const void*, int) { ++own_calls; }

}  // extern "C"

namespace {

// The library's own definition of a name, which the linker withholds from this program.
template <class Function>
Function* OfLibrary(const char* name) {
  void* const library = dlopen("libvtapi.so.0", RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(nullptr, library) << dlerror();
  void* const address = dlsym(library, name);
  EXPECT_NE(nullptr, address) << name;
  dlclose(library);
  return reinterpret_cast<Function*>(address);
}

std::vector<std::string> lines;
void Receive(uint32_t, const char* text) { lines.push_back(text); }

class Interposition : public ::testing::Test {
 protected:
  void SetUp() override { own_calls = 0; }
};

// Without this, the tests below would show nothing.
TEST_F(Interposition, EverybodyWhoAsksGetsTheProgramsDefinitions) {
  EXPECT_EQ(reinterpret_cast<void*>(&enqueue), dlsym(RTLD_DEFAULT, "enqueue"));
  EXPECT_EQ(reinterpret_cast<void*>(&setLogLevel), dlsym(RTLD_DEFAULT, "setLogLevel"));
  EXPECT_NE(&enqueue, OfLibrary<decltype(enqueue)>("enqueue"));
  EXPECT_NE(&setLogLevel, OfLibrary<decltype(setLogLevel)>("setLogLevel"));
}

TEST_F(Interposition, OrderedInsertUsesTheLibrarysEnqueue) {
  queue q = {};
  queue_element element = {};
  EXPECT_EQ(1u, queue_insert_comp(&q, &element, [](void*, void*) { return 0; }));
  EXPECT_EQ(1, queryqueuedepth(&q));
  EXPECT_EQ(&element, peekqueuehead(&q));
  EXPECT_EQ(&element, remqueue(&q, &element, nullptr));
  EXPECT_EQ(0, own_calls);
}

TEST_F(Interposition, QueryKeepsItsAttributesWithTheLibrarysQueue) {
  Query* const query = voltaris_createCollectQuery("office", 1);
  ASSERT_NE(nullptr, query);
  EXPECT_EQ(0, voltaris_addGetAttribute(query, VT_ATTRIBUTE_USAGE));
  EXPECT_EQ(2, queryqueuedepth(&query->attributes));
  voltaris_releaseQuery(query);
  EXPECT_EQ(0, own_calls);
}

TEST_F(Interposition, LogLevelIsTheLibrarysOwn) {
  const uint32_t before = getLogLevel();
  setLogLevel(before + 1);
  EXPECT_EQ(1, own_calls);
  EXPECT_EQ(before, getLogLevel());
  OfLibrary<decltype(setLogLevel)>("setLogLevel")(before + 1);
  EXPECT_EQ(before + 1, getLogLevel());
  OfLibrary<decltype(setLogLevel)>("setLogLevel")(before);
  EXPECT_EQ(1, own_calls);
}

TEST_F(Interposition, LogGoesToTheLibrarysFile) {
  std::FILE* const file = std::tmpfile();
  ASSERT_NE(nullptr, file);
  setLogFile(file);
  voltaris_dump_payload(nullptr);
  setLogFile(nullptr);
  EXPECT_GT(std::ftell(file), 0);
  std::fclose(file);
  EXPECT_EQ(0, own_calls);
}

TEST_F(Interposition, DumpAndSocketHelpersAreTheLibrarysOwn) {
  const auto set_level = OfLibrary<decltype(setLogLevel)>("setLogLevel");
  setLogCallback(&Receive);
  enableLogCallback(1);
  set_level(VT_LOG_TRACE);
  lines.clear();

  security_header sec = {};
  message_header pak = {};
  std::memset(pak.voltarisid, 'x', sizeof pak.voltarisid);
  Event event = {};
  event.sec = &sec;
  event.pak = &pak;
  voltaris_dump_pdu(&event);
  ASSERT_LE(2u, lines.size());
  EXPECT_EQ("voltaris_dump_pdu: voltarisid: " + std::string(32, 'x'), lines[1]);

  lines.clear();
  EXPECT_EQ(-1, vtn_read_udp_message(-1, nullptr, 0));
  EXPECT_EQ(std::vector<std::string>{"vtn_read_udp_message: read failed with -1 bytes, errno 9"},
            lines);

  set_level(VT_LOG_INFO);
  enableLogCallback(0);
  EXPECT_EQ(0, own_calls);
}

}  // namespace
