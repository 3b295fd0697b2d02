// Memory in which received messages lie one behind the other: chunks, each of which holds many
// messages and is returned with the last of them, whoever releases that and whenever. A message may
// therefore be taken from the result it came to, and outlive it.
#ifndef VT_CODEC_MESSAGE_POOL_H
#define VT_CODEC_MESSAGE_POOL_H

#include <cstddef>
#include <cstdint>

namespace vt::codec {

// Blocks of the heap begin at multiples of so many bytes.
constexpr std::size_t kHeapAlignment = 16;

// IsPooled tells whether a head or a part lies in a pool, of one that lies either there or in a
// block of its own: what is pooled begins where no block of the heap does.
[[nodiscard]] inline bool IsPooled(const void* made) {
  return reinterpret_cast<std::uintptr_t>(made) % kHeapAlignment != 0;
}

// MessagePool makes messages: a head first, which is what is released in the end, and then parts,
// which go with it. A zero-filled pool is empty, too. It belongs to one thread at a time; the heads
// that it has made may be released by any.
class MessagePool {
 public:
  // NewHead begins a message with a head of so many bytes, with anything in it, and room for parts
  // of so many bytes; null without memory. The message before is finished.
  [[nodiscard]] void* NewHead(std::size_t size, std::size_t room);

  // NewPart returns n bytes, with anything in them, that go with the head made last; null when
  // there is no such room, which is no failure: the part may be a block of its own.
  [[nodiscard]] void* NewPart(std::size_t n);

  // GiveBack takes the last n bytes of the part made last.
  void GiveBack(std::size_t n);

  // ReleaseHead releases a head, with all parts that go with it.
  static void ReleaseHead(void* head);

  // TakeBack makes the memory of the message begun last, which has been released, that of the next.
  void TakeBack();

  // Close leaves the pool empty. Messages that are not released keep their chunks.
  void Close();

 private:
  struct Chunk;

  [[nodiscard]] bool HasRoom(std::size_t n) const;
  [[nodiscard]] bool AddChunk(std::size_t room);
  static void Leave(Chunk* chunk);

  Chunk* open_ = nullptr;  // where messages are made
};

}  // namespace vt::codec

#endif  // VT_CODEC_MESSAGE_POOL_H
