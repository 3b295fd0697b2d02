// Many collections under one asio::io_context, without Boost and without a thread: a fleet is one
// descriptor that becomes readable and one time-out, which are an asio descriptor and a timer.
//
//   asio_loop HOST PORT [KEYFILE]
#include <asio.hpp>
#include <vtapi.hpp>

#include <cstdlib>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

// FleetService drives a fleet until all its collections have ended.
class FleetService {
 public:
  FleetService(asio::io_context& io, voltaris::Fleet& fleet)
      : fleet_(fleet), descriptor_(io, fleet.descriptor()), timer_(io) {}
  // The descriptor stays the fleet's.
  ~FleetService() { (void)descriptor_.release(); }
  FleetService(const FleetService&) = delete;
  FleetService& operator=(const FleetService&) = delete;

  // Drive does what can be done now and waits for what comes next, the descriptor or the timer.
  // Both may be ready at once: each time begins with neither being waited for.
  void Drive() {
    descriptor_.cancel();
    timer_.cancel();
    const bool goes_on = fleet_.step();
    while (auto ended = fleet_.take_ended()) Print(*ended);
    if (!goes_on) return;
    const auto drive_again = [this](asio::error_code error) {
      if (!error) Drive();
    };
    descriptor_.async_wait(asio::posix::stream_descriptor::wait_read, drive_again);
    if (const auto time = fleet_.timeout()) {
      timer_.expires_after(*time);
      timer_.async_wait(drive_again);
    }
  }

 private:
  static void Print(voltaris::Fleet::Ended& ended) {
    const voltaris::Results results = ended.collection.take_results().value();
    std::cout << "query " << ended.tag << ": " << results.row_count() << " rows, "
              << voltaris::text_of(results.outcome()) << '\n';
  }

  voltaris::Fleet& fleet_;
  asio::posix::stream_descriptor descriptor_;
  asio::steady_timer timer_;
};

voltaris::Session Open(char** argv) {
  const auto port = static_cast<std::uint16_t>(std::strtoul(argv[2], nullptr, 10));
  if (argv[3] == nullptr) return voltaris::Session::open(argv[1], port).value();
  return voltaris::Session::open(argv[1], port, voltaris::Key::from_file(argv[3]).value()).value();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::cerr << "usage: asio_loop HOST PORT [KEYFILE]\n";
    return 2;
  }
  try {
    voltaris::Session session = Open(argv);
    voltaris::Fleet fleet = voltaris::Fleet::create().value();
    const auto lamps =
        voltaris::collect_query("office").get(voltaris::name).where(voltaris::role, "lamp");
    for (std::uint64_t i = 1; i <= 20; ++i) fleet.add(session, lamps, i).value();
    asio::io_context io;
    FleetService service(io, fleet);
    service.Drive();
    io.run();  // returns when there is nothing left to wait for
  } catch (const std::exception& exception) {
    std::cerr << "asio_loop: " << exception.what() << '\n';
    return 1;
  }
  return 0;
}
