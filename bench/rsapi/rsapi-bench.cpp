// The delta engine beside rdiff, in one run on the same files: bench_rsapi [MiB], 256 by default.
// Every figure is the best of three: by the clock, and in processor time of all threads, which
// other work on the machine changes little. Files come from the page cache.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include "rsapi-cpp/api.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

const test::TempFolder folder;

void Require(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "failed: %s\n", what);
  std::exit(1);
}

// Processor seconds of this process and of the programs that it has run.
double ProcessorTime() {
  double seconds = 0;
  for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    getrusage(who, &usage);
    for (const timeval& part : {usage.ru_utime, usage.ru_stime}) {
      seconds += static_cast<double>(part.tv_sec) + static_cast<double>(part.tv_usec) / 1e6;
    }
  }
  return seconds;
}

struct Cost {
  double clock = 1e9, processor = 1e9;  // seconds
};

Cost Measure(const std::function<void()>& work, int rounds = 3) {
  Cost best;
  for (int i = 0; i < rounds; ++i) {
    const auto start = std::chrono::steady_clock::now();
    const double processor = ProcessorTime();
    work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    best.clock = std::min(best.clock, took.count());
    best.processor = std::min(best.processor, ProcessorTime() - processor);
  }
  return best;
}

ustring File(const char* name) { return folder / name; }

void MakeRandom(const char* name, std::size_t mib, unsigned seed) {
  std::mt19937_64 random(seed);
  std::ofstream out(File(name).str(), std::ios::binary);
  std::vector<std::uint64_t> piece((1 << 20) / 8);
  for (std::size_t i = 0; i < mib; ++i) {
    for (std::uint64_t& word : piece) word = random();
    out.write(reinterpret_cast<const char*>(piece.data()), 1 << 20);
  }
}

// `basis` with 1 MiB changed in the middle and 100 bytes put in front.
void MakeChanged(std::size_t mib) {
  std::ofstream(File("changed").str(), std::ios::binary) << std::string(100, 'x');
  std::ofstream out(File("changed").str(), std::ios::binary | std::ios::app);
  out << std::ifstream(File("basis").str(), std::ios::binary).rdbuf();
  out.close();
  std::fstream middle(File("changed").str(), std::ios::binary | std::ios::in | std::ios::out);
  middle.seekp(static_cast<std::streamoff>(mib << 19));
  middle << std::ifstream(File("other").str(), std::ios::binary).rdbuf();
}

void Rdiff(const std::string& arguments) {
  const std::string command = "cd " + folder.path() + " && rdiff -f " + arguments;
  Require(std::system(command.c_str()) == 0, command.c_str());
}

struct Pass {
  bool hash = false, signature = false, delta = false;
};

void Read(const char* name, const Pass& pass) {
  SimpleFileReader reader;
  ustring hash;
  reader.setFile(File(name));
  if (pass.hash) reader.setHashString(hash);
  if (pass.signature) reader.setSignature(File("made.sig"), 2048, 8);
  if (pass.delta) reader.setDelta(File("made.delta"), File("basis.sig"));
  Require(reader.readFile() == 0, name);
}

void Patch(bool with_hash) {
  DeltaFileReader reader;
  ustring hash;
  reader.setFile(File("basis"), File("changed.delta"));
  reader.setNewFile(File("patched"));
  if (with_hash) reader.setHashString(hash);
  Require(reader.readFile() == 0, "patch");
}

// The memory that a process has needed which does nothing but `work`.
long PeakKib(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    work();
    _exit(0);
  }
  rusage usage{};
  int status = 0;
  Require(wait4(child, &status, 0, &usage) == child && status == 0, "child");
  return usage.ru_maxrss;
}

void Compare(const char* what, double bytes, const Cost& ours, const Cost& theirs, double wanted) {
  std::printf(
      "%-34s %5.0f MB/s beside %5.0f, ratio %5.2f; processor time %5.0f, %5.0f, %5.2f; wanted "
      "%.1f\n",
      what, bytes / ours.clock / 1e6, bytes / theirs.clock / 1e6, theirs.clock / ours.clock,
      bytes / ours.processor / 1e6, bytes / theirs.processor / 1e6,
      theirs.processor / ours.processor, wanted);
}

void CompareToHash(const char* what, const Cost& pass, const Cost& hash, double wanted) {
  std::printf("%-34s %5.2f times the MD4 alone, processor time %5.2f; wanted at most %.1f\n", what,
              pass.clock / hash.clock, pass.processor / hash.processor, wanted);
}

void Run(std::size_t mib) {
  MakeRandom("basis", mib, 1);
  MakeRandom("unrelated", mib, 2);
  MakeRandom("other", 1, 3);
  MakeChanged(mib);
  const auto bytes = static_cast<double>(mib << 20);
  const std::string options = "-b 2048 -S 8 -H md4 -R rollsum ";

  const Cost their_signature = Measure([&] { Rdiff(options + "signature basis basis.sig"); });
  Compare("signature", bytes, Measure([] { Read("basis", {.signature = true}); }), their_signature,
          4);
  const auto delta = [&](const char* what, const std::string& name, double wanted, int rounds) {
    const Cost theirs =
        Measure([&] { Rdiff("delta basis.sig " + name + " " + name + ".delta"); }, rounds);
    Compare(what, bytes, Measure([&] { Read(name.c_str(), {.delta = true}); }), theirs, wanted);
  };
  delta("delta of the same file", "basis", 3, 3);
  delta("delta after two changes", "changed", 3, 3);
  delta("delta against an unrelated file", "unrelated", 10, 1);
  const Cost their_patch = Measure([] { Rdiff("patch basis changed.delta patched"); });
  Compare("patch with hashing, rdiff without", bytes, Measure([] { Patch(true); }), their_patch,
          0.7);
  Compare("patch without hashing", bytes, Measure([] { Patch(false); }), their_patch, 0.7);

  const Cost hash = Measure([] { Read("basis", {.hash = true}); });
  const Cost signed_too = Measure([] { Read("basis", {.hash = true, .signature = true}); });
  const Cost all = Measure([] { Read("basis", {.hash = true, .signature = true, .delta = true}); });
  std::printf("one pass for the MD4 alone %.0f MB/s\n", bytes / hash.clock / 1e6);
  CompareToHash("with the signature", signed_too, hash, 1.3);
  CompareToHash("with signature and delta", all, hash, 1.6);

  const long idle = PeakKib([] {});
  const double blocks = bytes / 2048;
  for (const char* name : {"basis", "changed", "unrelated"}) {
    const long peak = PeakKib([name] { Read(name, {.delta = true}); });
    const double used = static_cast<double>(peak - idle) / 1024;
    std::printf("memory of a delta pass, %s: %.1f MiB, bound %.1f\n", name, used,
                64 + 24 * blocks / (1 << 20));
  }
}

}  // namespace
}  // namespace tolven

int main(int argc, char** argv) {
  const int mib = argc > 1 ? std::atoi(argv[1]) : 256;
  tolven::Require(mib >= 4, "size of at least 4 MiB");
  tolven::Run(static_cast<std::size_t>(mib));
}
