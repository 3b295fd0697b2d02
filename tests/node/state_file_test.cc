#include "node/state_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <thread>

#include "node/state_keeper.h"
#include "tests/node/disk_calls.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::ReadState;
using node::StateFile;
using node::StateRecord;
using node::WriteState;

node::DeviceIdText Id(int number) {
  node::DeviceIdText id{};
  std::ranges::copy(DeviceId(number), id.begin());
  return id;
}

// Everything that can be set is set in one of these, and one thing in each of the others.
std::vector<StateRecord> Records() {
  std::vector<StateRecord> records(4);
  records[0] = {Id(1), 1, {}};
  records[0].changes.level = 3;
  records[0].changes.importance = 255;
  records[0].changes.name = "lamp = in the corner";
  records[0].changes.role = "lamp";
  records[0].changes.keywords = "a,b";
  records[0].changes.recurrence = node::Recurrence{"0 8 * * 1-5 = x", 1, 255, -7};
  records[1] = {Id(1), 4294967295u, {}};
  records[1].changes.level = 0;
  records[2] = {Id(2), 1, {}};
  records[2].changes.recurrence = node::Recurrence{};
  records[3] = {Id(3), 1, {}};
  records[3].changes.importance = 0;
  return records;
}

std::string ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string HexOf(const Bytes& bytes) {
  std::string hex;
  for (const std::uint8_t byte : bytes) {
    hex += "0123456789abcdef"[byte >> 4];
    hex += "0123456789abcdef"[byte & 15];
  }
  return hex;
}

// Sealed puts the right last line behind a body.
std::string Sealed(const std::string& body) {
  const auto lines = std::ranges::count(body, '\n') - 1;
  return body + "end " + std::to_string(lines) + " " +
         HexOf(HmacSha1(Text("voltaris-node state "), Text(body))) + "\n";
}

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::ranges::sort(names);
  return names;
}

// --- the text ---

TEST(StateText, IsWhatTheDocumentSays) {
  EXPECT_EQ(WriteState(Records()),
            Sealed("voltaris-node state 1\n" + DeviceId(1) +
                   "\t1\tlevel=3\timportance=255\tname=lamp = in the corner\trole=lamp\t"
                   "keywords=a,b\trecurrence=1 255 -7 0 8 * * 1-5 = x\n" +
                   DeviceId(1) + "\t4294967295\tlevel=0\n" + DeviceId(2) +
                   "\t1\trecurrence=0 0 0 \n" + DeviceId(3) + "\t1\timportance=0\n"));
}

TEST(StateText, WhatIsWrittenIsRead) {
  EXPECT_EQ(ReadState(WriteState(Records())), Records());
  EXPECT_TRUE(ReadState(WriteState({})).empty());
}

TEST(StateText, TornAnywhereItIsNotRead) {
  const std::string text = WriteState(Records());
  for (std::size_t size = 0; size < text.size(); ++size) {
    EXPECT_THROW((void)ReadState(text.substr(0, size)), node::StateError) << size;
  }
}

TEST(StateText, AnyBitThatIsWrongIsFound) {
  const std::string text = WriteState(Records());
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = text;
      damaged[i] = static_cast<char>(damaged[i] ^ (1 << bit));
      EXPECT_THROW((void)ReadState(damaged), node::StateError) << "byte " << i << " bit " << bit;
    }
  }
}

TEST(StateText, BytesTooManyAreFound) {
  const std::string text = WriteState(Records());
  for (std::size_t i = 0; i <= text.size(); ++i) {
    for (const char added : {'\0', '\n', '0', 'x'}) {
      std::string longer = text;
      longer.insert(i, 1, added);
      EXPECT_THROW((void)ReadState(longer), node::StateError) << i;
    }
  }
  EXPECT_THROW((void)ReadState(text + text), node::StateError);
}

TEST(StateText, AnotherVersionIsNotRead) {
  try {
    (void)ReadState(Sealed("voltaris-node state 2\n"));
    ADD_FAILURE() << "read";
  } catch (const node::StateError& error) {
    EXPECT_EQ(std::string(error.what()), "its version is 2, not 1");
  }
}

TEST(StateText, LinesThatNoSetCouldHaveMadeAreNotReadHoweverWellTheyAreSealed) {
  const std::string title = "voltaris-node state 1\n";
  const std::string id = DeviceId(1);
  ASSERT_EQ(ReadState(Sealed(title + id + "\t1\tlevel=10\n")).size(), 1u);
  for (const std::string& body : {
           std::string("something else 1\n"),
           title + "\n",
           title + id + "\n",
           title + id + "\tx\tlevel=1\n",
           title + id + "\t-1\tlevel=1\n",
           title + id.substr(1) + "\t1\tlevel=1\n",
           title + id + "x\t1\tlevel=1\n",
           title + id + "\t1\tlevel=11\n",
           title + id + "\t1\tlevel=\n",
           title + id + "\t1\tlevel=1x\n",
           title + id + "\t1\timportance=256\n",
           title + id + "\t1\tname=\n",
           title + id + "\t1\tname=a*b\n",
           title + id + "\t1\tname=" + std::string(256, 'n') + "\n",
           title + id + "\t1\tcolour=red\n",
           title + id + "\t1\tlevel\n",
           title + id + "\t1\t\n",
           title + id + "\t1\trecurrence=1 2 3\n",
           title + id + "\t1\trecurrence=1 256 3 x\n",
           title + id + "\t1\trecurrence=1 2 3 " + std::string(256, 'x') + "\n",
       }) {
    EXPECT_THROW((void)ReadState(Sealed(body)), node::StateError) << body;
  }
}

// --- the file ---

TEST(StateFile, AFileThatIsNotThereHoldsNothing) {
  const TempFolder folder;
  const StateFile::Loaded loaded = StateFile(folder.path("state")).Load();
  EXPECT_TRUE(loaded.records.empty());
  EXPECT_FALSE(loaded.set_aside);
}

TEST(StateFile, WhatIsSavedIsLoaded) {
  const TempFolder folder;
  const StateFile file(folder.path("state"));
  file.Save(Records());
  EXPECT_EQ(file.Load().records, Records());
  file.Save({});
  EXPECT_TRUE(file.Load().records.empty());
  EXPECT_EQ(NamesIn(folder.path("")), std::vector<std::string>{"state"});
}

TEST(StateFile, OthersCannotReadIt) {
  const TempFolder folder;
  StateFile(folder.path("state")).Save(Records());
  struct stat status {};
  ASSERT_EQ(stat(folder.path("state").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST(StateFile, ItIsReplacedAndNeverWrittenInto) {
  const TempFolder folder;
  const StateFile file(folder.path("state"));
  file.Save(Records());
  const std::string before = ContentOf(file.path());
  // The second name leads to the bytes that were there, whatever happens to the first.
  ASSERT_EQ(link(file.path().c_str(), folder.path("witness").c_str()), 0);
  file.Save({});
  EXPECT_EQ(ContentOf(folder.path("witness")), before);
  EXPECT_NE(ContentOf(file.path()), before);
}

// NameOfFolder is the last part of the path of a folder.
std::string NameOfFolder(const TempFolder& folder) {
  return std::filesystem::path(folder.path("x")).parent_path().filename().string();
}

TEST(StateFile, ItIsOnTheDiskBeforeItTakesItsPlaceAndTheFolderAfterwards) {
  const TempFolder folder;
  const StateFile file(folder.path("state"));
  file.Save({});
  const std::string old_text = ContentOf(file.path());
  DiskCalls disk;
  std::size_t looked = 0;
  disk.before = [&](const std::string& call) {
    // Whenever the machine stops, one of the two is there as a whole.
    const bool is_in_place = call == "fsync " + NameOfFolder(folder);
    EXPECT_EQ(ContentOf(file.path()), is_in_place ? WriteState(Records()) : old_text) << call;
    if (!is_in_place) {
      EXPECT_EQ(ContentOf(folder.path("state.new")), WriteState(Records())) << call;
    }
    ++looked;
  };
  file.Save(Records());
  EXPECT_EQ(disk.calls(), (std::vector<std::string>{"fsync state.new", "rename state.new state",
                                                    "fsync " + NameOfFolder(folder)}));
  EXPECT_EQ(looked, 3u);
}

TEST(StateFile, WhereverTheDiskFailsAWholeFileIsThereAndTheFailureIsTold) {
  for (std::size_t call = 0; call < 3; ++call) {
    const TempFolder folder;
    const StateFile file(folder.path("state"));
    file.Save({});
    {
      DiskCalls disk;
      disk.fail_at = call;
      EXPECT_THROW(file.Save(Records()), std::system_error) << call;
      EXPECT_EQ(disk.calls().size(), call + 1) << "nothing more is done";
    }
    const bool was_renamed = call == 2;
    EXPECT_EQ(file.Load().records, was_renamed ? Records() : std::vector<StateRecord>());
    EXPECT_EQ(NamesIn(folder.path("")), std::vector<std::string>{"state"});
  }
}

TEST(StateFile, SettingAsideIsBroughtToTheDiskToo) {
  const TempFolder folder;
  const StateFile file(folder.Write("state", "torn"));
  DiskCalls disk;
  EXPECT_TRUE(file.Load().set_aside);
  EXPECT_EQ(disk.calls(), (std::vector<std::string>{"fsync " + NameOfFolder(folder)}));
}

TEST(StateFile, AReaderSeesTheOldFileOrTheNewOneAtAnyTime) {
  const TempFolder folder;
  const StateFile file(folder.path("state"));
  std::vector<StateRecord> many;
  for (int i = 0; i < 2000; ++i) {
    many.push_back(Records()[1]);
    many.back().id = Id(i);
  }
  file.Save(many);
  std::atomic<bool> is_done = false;
  std::size_t torn = 0;
  std::size_t reads = 0;
  std::thread reader([&] {
    do {
      try {
        const std::size_t size = ReadState(ContentOf(file.path())).size();
        torn += size == many.size() || size == Records().size() ? 0 : 1;
      } catch (const node::StateError&) {
        ++torn;
      }
      ++reads;
    } while (!is_done);
  });
  for (int i = 0; i < 30; ++i) file.Save(i % 2 == 0 ? Records() : many);
  is_done = true;
  reader.join();
  EXPECT_EQ(torn, 0u);
  EXPECT_GT(reads, 0u);
}

TEST(StateFile, WhatACrashLeftUnfinishedHarmsNothing) {
  const TempFolder folder;
  const StateFile file(folder.path("state"));
  file.Save(Records());
  const std::string text = ContentOf(file.path());
  for (std::size_t size = 0; size <= text.size(); size += 7) {
    folder.Write("state.new", text.substr(0, size));
    EXPECT_EQ(file.Load().records, Records());
  }
  file.Save({});
  EXPECT_TRUE(file.Load().records.empty());
  EXPECT_EQ(NamesIn(folder.path("")), std::vector<std::string>{"state"});
}

TEST(StateFile, ADamagedFileIsSetAsideWholeUnderANameOfItsOwn) {
  const TempFolder folder;
  const StateFile file(folder.path("state"));
  const std::string text = WriteState(Records());
  for (int i = 1; i <= 3; ++i) {
    const std::string torn = text.substr(0, text.size() - static_cast<std::size_t>(i));
    folder.Write("state", torn);
    const StateFile::Loaded loaded = file.Load();
    EXPECT_TRUE(loaded.records.empty()) << "nothing of it is believed";
    const std::string aside = file.path() + ".damaged-" + std::to_string(i);
    ASSERT_TRUE(loaded.set_aside);
    EXPECT_NE(loaded.set_aside->find("damaged"), std::string::npos);
    EXPECT_NE(loaded.set_aside->find(aside), std::string::npos) << *loaded.set_aside;
    EXPECT_EQ(ContentOf(aside), torn);
    EXPECT_FALSE(std::filesystem::exists(file.path()));
  }
}

TEST(StateFile, AFileThatIsTornAtAnyByteIsSetAside) {
  const TempFolder folder;
  const StateFile file(folder.path("state"));
  const std::string text = WriteState(Records());
  for (std::size_t size = 0; size < text.size(); ++size) {
    folder.Write("state", text.substr(0, size));
    const StateFile::Loaded loaded = file.Load();
    ASSERT_TRUE(loaded.set_aside) << size;
    ASSERT_TRUE(loaded.records.empty());
    ASSERT_EQ(unlink((file.path() + ".damaged-1").c_str()), 0);
  }
}

// LimitFileSize makes writing fail as a full disk does, until it goes.
class LimitFileSize {
 public:
  explicit LimitFileSize(rlim_t bytes) {
    (void)signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~LimitFileSize() {
    setrlimit(RLIMIT_FSIZE, &before_);
    (void)signal(SIGXFSZ, SIG_DFL);
  }
  LimitFileSize(const LimitFileSize&) = delete;
  LimitFileSize& operator=(const LimitFileSize&) = delete;

 private:
  rlimit before_{};
};

TEST(StateFile, AFullDiskLeavesTheOldFile) {
  const TempFolder folder;
  const StateFile file(folder.path("state"));
  file.Save(Records());
  std::vector<StateRecord> changed = Records();
  changed[0].changes.level = 9;
  const std::size_t size = WriteState(changed).size();
  for (std::size_t room = 0; room < size; room += 13) {
    const LimitFileSize limit(room);
    EXPECT_THROW(file.Save(changed), std::system_error) << room;
  }
  EXPECT_EQ(file.Load().records, Records());
  EXPECT_EQ(NamesIn(folder.path("")), std::vector<std::string>{"state"}) << "nothing is left over";
}

TEST(StateFile, AFolderThatCannotBeWrittenIsToldAtOnce) {
  const TempFolder folder;
  const std::string file = folder.Write("file", "");
  for (const std::string& path : {folder.path("missing/state"), file + "/state"}) {
    EXPECT_THROW((void)StateFile(path).Load(), std::system_error) << path;
    EXPECT_THROW(StateFile(path).Save(Records()), std::system_error) << path;
  }
}

TEST(StateFile, AFolderWithoutPermissionIsToldAtOnce) {
  if (geteuid() == 0) GTEST_SKIP() << "no mode keeps root out";
  const TempFolder folder;
  const std::string locked = folder.path("locked");
  std::filesystem::create_directory(locked);
  ASSERT_EQ(chmod(locked.c_str(), 0500), 0);
  EXPECT_THROW((void)StateFile(locked + "/state").Load(), std::system_error);
  EXPECT_THROW(StateFile(locked + "/state").Save(Records()), std::system_error);
}

TEST(StateFile, AFolderInItsPlaceIsAnErrorAndStays) {
  const TempFolder folder;
  std::filesystem::create_directory(folder.path("state"));
  EXPECT_THROW((void)StateFile(folder.path("state")).Load(), std::system_error);
  EXPECT_THROW(StateFile(folder.path("state")).Save(Records()), std::system_error);
  EXPECT_TRUE(std::filesystem::is_directory(folder.path("state")));
}

// --- with a fleet ---

TEST(StateKeeper, WhatWasSetIsBackInTheFleet) {
  const TempFolder folder;
  const std::string config = NodeToml({{.number = 1}, {.number = 2, .name = "lamp-2"}});
  node::Fleet fleet = Load(config).fleet;
  fleet.Apply(0, Records()[0].changes);
  node::StateKeeper(folder.path("state")).Keep(fleet);

  node::Fleet again = Load(config).fleet;
  node::StateKeeper keeper(folder.path("state"));
  EXPECT_TRUE(keeper.Restore(again).empty());
  EXPECT_EQ(again.ChangesOf(0), Records()[0].changes);
  EXPECT_TRUE(again.ChangesOf(1).empty());
  EXPECT_EQ(again.EntityAt(0).level, 3);
  EXPECT_EQ(again.RoleOf(0), "lamp");
  EXPECT_EQ(again.RecurrenceOf(0)->text, "0 8 * * 1-5 = x");
}

TEST(StateKeeper, WhatWasSetOfDevicesThatAreGoneWaitsForThem) {
  const TempFolder folder;
  const std::string both = NodeToml({{.number = 1}, {.number = 2, .name = "lamp-2"}});
  node::Fleet fleet = Load(both).fleet;
  fleet.Apply(1, Records()[1].changes);
  node::StateKeeper(folder.path("state")).Keep(fleet);

  node::Fleet one = Load(NodeToml({{.number = 1}})).fleet;
  node::StateKeeper keeper(folder.path("state"));
  const std::vector<std::string> notes = keeper.Restore(one);
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_NE(notes[0].find("tells of 1 entities"), std::string::npos) << notes[0];
  one.Apply(0, Records()[3].changes);
  keeper.Keep(one);

  node::Fleet back = Load(both).fleet;
  EXPECT_TRUE(node::StateKeeper(folder.path("state")).Restore(back).empty());
  EXPECT_EQ(back.ChangesOf(0), Records()[3].changes);
  EXPECT_EQ(back.ChangesOf(1), Records()[1].changes);
}

TEST(StateKeeper, WithoutAFileNothingIsKept) {
  node::Fleet fleet = Load(NodeToml({{.number = 1}})).fleet;
  node::StateKeeper keeper(std::nullopt);
  EXPECT_TRUE(keeper.Restore(fleet).empty());
  keeper.Keep(fleet);
}

}  // namespace
}  // namespace vt::testing
