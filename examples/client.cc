// The C++ interface: dims the lamps of the domain "office" to level 5, then shows all its devices.
//
//   client HOST PORT [KEYFILE]
#include <vtapi.hpp>

#include <cstdlib>
#include <iostream>
#include <string>

namespace {

// Everything that can fail gives an Expected; value() throws what it holds instead of a result.
voltaris::Session Open(const std::string& host, const std::string& port, const char* key_file) {
  const auto number = static_cast<std::uint16_t>(std::strtoul(port.c_str(), nullptr, 10));
  if (key_file == nullptr) return voltaris::Session::open(host, number).value();
  const voltaris::Key key = voltaris::Key::from_file(key_file).value();
  return voltaris::Session::open(host, number, key).value();
}

void Print(const voltaris::Row& row) {
  std::cout << row.device().text() << ' ' << row.get(voltaris::name).value_or("-");
  // Usage comes with its units; a device that told none leaves the watts unknown.
  if (const auto told = row.get(voltaris::usage); told && told->watts()) {
    std::cout << ' ' << *told->watts() << " W";
  }
  if (const auto at = row.get(voltaris::level)) std::cout << " level " << *at;
  for (const std::string& word : row.get(voltaris::keywords).value_or(std::vector<std::string>())) {
    std::cout << " #" << word;
  }
  std::cout << '\n';
}

void Run(voltaris::Session& session) {
  // A description is a value: it can be kept, changed, compared, and executed again and elsewhere.
  const auto dim =
      voltaris::set_query("office").set(voltaris::level, 5).where(voltaris::role, "lamp");
  const voltaris::Results dimmed = session.execute(dim).value();
  std::cout << dimmed.accepted().size() << " accepted\n";

  const auto all = voltaris::collect_query("office").get(voltaris::name, voltaris::usage,
                                                         voltaris::level, voltaris::keywords);
  const voltaris::Results results = session.execute(all).value();
  for (const voltaris::Row row : results.rows()) Print(row);
  // An answer that came in part only is an answer as well; failure() tells what is missing.
  std::cout << results.row_count() << " rows, " << voltaris::text_of(results.outcome()) << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::cerr << "usage: client HOST PORT [KEYFILE]\n";
    return 2;
  }
  try {
    voltaris::Session session = Open(argv[1], argv[2], argc > 3 ? argv[3] : nullptr);
    Run(session);
  } catch (const voltaris::Exception& exception) {
    std::cerr << "client: " << exception.what() << '\n';
    return 1;
  }
  return 0;
}
