// Compiling this is the test: the interface, used as applications use it, without exceptions and
// RTTI, from a file that includes nothing else of the library.
#include <vtapi.hpp>

namespace {

int Watts(const voltaris::Results& results) {
  double sum = 0;
  for (const voltaris::Row row : results.rows()) {
    const auto told = row.get(voltaris::usage);
    if (told) sum += told->watts().value_or(0);
    if (row.copy().get(voltaris::keywords).has_value()) ++sum;
  }
  return static_cast<int>(sum);
}

}  // namespace

int AskOne(const char* key_file);
int AskMany();

int AskOne(const char* key_file) {
  auto key = voltaris::Key::from_file(key_file);
  if (!key) return 1;
  auto session = voltaris::Session::open("127.0.0.1", 7440, *key);
  if (!session) return 2;
  const auto results = session->execute(voltaris::collect_query("office").get(voltaris::usage));
  return results ? Watts(*results) : 3;
}

int AskMany() {
  auto session = voltaris::Session::open("127.0.0.1", 7440);
  auto fleet = voltaris::Fleet::create();
  if (!session || !fleet) return 1;
  const auto description = voltaris::set_query("office").set(voltaris::level, 3);
  if (!fleet->add(session.value(), description, 1)) return 2;
  int watts = 0;
  (void)fleet->run([&watts](std::uint64_t, voltaris::Collection& ended) {
    if (const auto results = ended.take_results()) watts += Watts(*results);
  });
  return watts;
}
