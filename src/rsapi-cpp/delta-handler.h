// Writes a delta that makes the bytes of a pass out of the file that a signature is of.
//
// A window of one block goes over the bytes. Where the signature has a block with the window's weak
// and strong sums (the lowest such block counts), a copy begins, and the window goes on block by
// block as long as the next window is the next block of the basis; elsewhere it goes on byte by
// byte and what it leaves behind is a literal. Both end with the piece that update() is given. A
// tail shorter than a block is never looked up.
//
// Strong sums are made only of windows whose weak sum was found, several at a time: of the windows
// that would continue a copy, and, once a weak sum has deceived, of the next ones to be found. A
// signature that was made to deceive everywhere is believed only now and then: what is hashed in
// vain stays in proportion to the bytes of the pass.
#pragma once

#include <cstdint>
#include <vector>

#include "rsapi-cpp/handler-output.h"
#include "rsapi-cpp/handler.h"
#include "rsapi-cpp/signature-index.h"

namespace tolven {

class DeltaHandler : public Handler {
 public:
  DeltaHandler(const ustring& delta_file, const ustring& signature_file)
      : delta_file_(delta_file), signature_file_(signature_file) {}

  int begin() override;
  int update(const void* data, std::size_t size) override;
  // Nothing to wait for: what is being written is the handler's own, and goes on beside the next
  // piece.
  int wait() override { return 0; }
  int end() override;

 private:
  // A window that the filter let through, or whose weak sum the signature has.
  struct Candidate {
    std::size_t position;
    std::uint32_t weak_sum;
  };
  struct Piece {
    const std::uint8_t* data;
    std::size_t last;  // where the last whole window begins
  };

  // Writes commands for the piece and returns where its unused tail begins.
  std::size_t scan(const std::uint8_t* data, std::size_t size);
  // How many windows from `position` on continue the copy under way, which takes them.
  std::size_t extendMatch(const Piece& piece, std::size_t position);
  // The first window at or behind `position` that begins a copy, and begins it; npos for none.
  std::size_t findMatch(const Piece& piece, std::size_t position);
  // Adds those of the windows at [position, position + count) that the filter lets through to
  // `expected_`, after those that stood there were confirmed. `roll` stands at the
  // first window and goes on behind them. A byte follows each.
  void collectCandidates(simd::Roll& roll, std::size_t position, std::size_t count);
  // Those of `expected_` whose weak sums the signature has become candidates.
  void confirmExpected();
  // Looks up the first `count` candidates and drops them; npos when none begins a copy.
  std::size_t tryCandidates(const Piece& piece, std::size_t count);
  bool isDeceivedTooOften() const;
  void clearMatch();
  void appendLiteral(const std::uint8_t* data, std::size_t size);
  // Starts the write of the commands so far, once the one before it has ended.
  int startWrite();

  const ustring delta_file_, signature_file_;
  SignatureIndex index_;
  std::vector<std::uint8_t> read_buffer_;   // the tail of the pieces so far
  std::vector<std::uint8_t> write_buffer_;  // commands of this piece
  std::vector<std::uint8_t> in_flight_;     // those of the piece before, on their way to the file
  HandlerOutput output_;                    // ends its write before the bytes go
  std::size_t match_start_ = 0, match_count_ = 0;  // blocks of the copy under way
  // What memory is asked for waits here while the next windows are rolled over.
  std::vector<Candidate> expected_;
  std::vector<Candidate> candidates_;
  std::size_t try_together_ = 1;  // grows with each deception, falls with a match
  // Bytes that were given to update(), and those of windows whose strong sum was in vain.
  std::uint64_t passed_ = 0, deceived_ = 0;
};

}  // namespace tolven
