// The pure code, built for this machine, under Google Benchmark. Prints one line for every pair of
// measurements: the case, its units, our nanoseconds and theirs.
//
// usage: native_bench PAIRS SECONDS
//        native_bench check FILE...   nanoseconds of one read and the digest of each file
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <openssl/evp.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "cases.h"
#include "core/md5.h"

namespace {

using ve::bench::Case;

/// Hands on the time of one iteration of what was run last.
class LastTime : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) nanoseconds_ = run.GetAdjustedRealTime();
  }
  [[nodiscard]] double Nanoseconds() const { return nanoseconds_; }

 private:
  double nanoseconds_ = 0;
};

void Register(const std::string& name, const ve::bench::Work& work, double seconds) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [work](benchmark::State& state) {
                                 for (auto _ : state) state.SetIterationTime(work() * 1e-9);
                               })
      ->UseManualTime()
      ->MinTime(seconds);
}

double Run(const std::string& name) {
  LastTime reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter, "^" + name + "/");
  return reporter.Nanoseconds();
}

void OpenSslMd5(const void* bytes, std::size_t size) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned length = 0;
  EVP_Digest(bytes, size, digest, &length, EVP_md5(), nullptr);
}

/// What checking an installed game consists of, and nothing else.
int Check(const std::vector<std::string>& paths) {
  // Where Wine's heap has large blocks, too: the system copies a file to any other place at a third
  // of the speed.
  struct alignas(64) CacheLine {
    std::byte bytes[64];
  };
  std::vector<CacheLine> lines;
  std::size_t missing = 0;
  const double nanoseconds = ve::bench::Measure([&] {
    for (const std::string& path : paths) {
      const int file = open(path.c_str(), O_RDONLY);
      struct stat status {};
      if (file < 0 || fstat(file, &status) != 0) {
        ++missing;
        continue;
      }
      const auto size = static_cast<std::size_t>(status.st_size);
      if (lines.size() * sizeof(CacheLine) < size) lines.resize(size / sizeof(CacheLine) + 1);
      missing += read(file, lines.data(), size) != status.st_size ? 1U : 0U;
      close(file);
      ve::bench::Keep(ve::Md5Hex({lines.data()->bytes, size}).size());
    }
  });
  std::cout << nanoseconds << std::endl;
  return missing == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && std::string_view(argv[1]) == "check") return Check({argv + 2, argv + argc});
  if (argc != 3) return EXIT_FAILURE;
  const int pairs = std::atoi(argv[1]);
  const double seconds = std::atof(argv[2]);

  std::vector<Case> cases = ve::bench::Md5Cases(OpenSslMd5);
  for (const auto& more : {ve::bench::ManifestCases(), ve::bench::FormatCases()}) {
    cases.insert(cases.end(), more.begin(), more.end());
  }
  for (const Case& one : cases) {
    Register(one.name + "/ours", one.ours, seconds);
    Register(one.name + "/theirs", one.theirs, seconds);
  }
  for (const Case& one : cases) {
    for (int pair = 0; pair < pairs; ++pair) {
      const double ours = Run(one.name + "/ours");
      const double theirs = Run(one.name + "/theirs");
      std::cout << one.name << '\t' << one.units << '\t' << ours << '\t' << theirs << std::endl;
    }
  }
}
