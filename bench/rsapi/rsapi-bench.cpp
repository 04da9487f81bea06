// The delta engine beside rdiff, in one run on the same files: bench_rsapi [MiB], 256 by default.
// Every figure is the best of three. Files come from the page cache.

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

double Seconds(const std::function<void()>& work) {
  double best = 1e9;
  for (int i = 0; i < 3; ++i) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count());
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

void Compare(const char* what, double bytes, double ours, double theirs, double wanted) {
  std::printf("%-44s %6.0f MB/s beside %6.0f  ratio %5.2f  wanted %.1f\n", what, bytes / ours / 1e6,
              bytes / theirs / 1e6, theirs / ours, wanted);
}

void Run(std::size_t mib) {
  MakeRandom("basis", mib, 1);
  MakeRandom("unrelated", mib, 2);
  MakeRandom("other", 1, 3);
  MakeChanged(mib);
  const auto bytes = static_cast<double>(mib << 20);
  const std::string options = "-b 2048 -S 8 -H md4 -R rollsum ";

  const double their_signature = Seconds([&] { Rdiff(options + "signature basis basis.sig"); });
  Compare("signature", bytes, Seconds([] { Read("basis", {.signature = true}); }), their_signature,
          4);
  const auto delta = [&](const char* what, const std::string& name, double wanted, int rounds) {
    double theirs = 1e9;
    for (int i = 0; i < rounds; ++i) {
      const auto start = std::chrono::steady_clock::now();
      Rdiff("delta basis.sig " + name + " " + name + ".delta");
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      theirs = std::min(theirs, took.count());
    }
    Compare(what, bytes, Seconds([&] { Read(name.c_str(), {.delta = true}); }), theirs, wanted);
  };
  delta("delta of the same file", "basis", 3, 3);
  delta("delta after two changes", "changed", 3, 3);
  delta("delta against an unrelated file", "unrelated", 10, 1);
  const double their_patch = Seconds([] { Rdiff("patch basis changed.delta patched"); });
  Compare("patch with hashing, rdiff without", bytes, Seconds([] { Patch(true); }), their_patch,
          0.7);
  Compare("patch without hashing", bytes, Seconds([] { Patch(false); }), their_patch, 0.7);

  const double hash = Seconds([] { Read("basis", {.hash = true}); });
  const double signed_too = Seconds([] { Read("basis", {.hash = true, .signature = true}); });
  const double all =
      Seconds([] { Read("basis", {.hash = true, .signature = true, .delta = true}); });
  std::printf(
      "one pass: MD4 alone %.0f MB/s; with signature %.2f times its time, wanted at most "
      "1.3; with delta too %.2f, wanted at most 1.6\n",
      bytes / hash / 1e6, signed_too / hash, all / hash);

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
