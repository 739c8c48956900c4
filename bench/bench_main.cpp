// SPDX-License-Identifier: MIT
// Ours beside OpenCV, swscale, hand-written libyuv and memcpy, in one process and taking turns. Prints a row a
// request: the time of each as a multiple of copying the same bytes, and ours over the best of the others.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "rows.h"

namespace tavi::bench {
namespace {

constexpr const char* kCandidates[] = {"ours", "memcpy", "libyuv", "opencv", "swscale", "frames", "2 threads"};

// Keeps the least time of each row and candidate: what the machine can do when nothing disturbs it.
class Table : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration)
                continue;
            const std::string name = r.run_name.function_name;
            const size_t bar = name.rfind('|');
            double& least = times_[name.substr(0, bar)][name.substr(bar + 1)];
            const double us = r.GetAdjustedRealTime() / 1000;
            least = least == 0 ? us : std::min(least, us);
        }
    }
    void Finalize() override {
        std::printf("%-52s %10s %8s %8s %8s %8s %9s %8s %9s\n", "row", "ours us", "x copy", "libyuv", "opencv",
                    "swscale", "ours/best", "frames", "2 threads");
        for (const std::string& row : order_) {
            auto& t = times_[row];
            if (!t.count("ours"))
                continue;
            const double copy = t["memcpy"], mine = t["ours"];
            double best = 0;
            std::printf("%-52s %10.1f %8.2f", row.c_str(), mine, mine / copy);
            for (const char* peer : {"libyuv", "opencv", "swscale"}) {
                if (!t.count(peer)) {
                    std::printf(" %8s", "-");
                    continue;
                }
                best = best == 0 ? t[peer] : std::min(best, t[peer]);
                std::printf(" %8.2f", t[peer] / copy);
            }
            if (best > 0)
                std::printf(" %8.2f%s", mine / best, mine > best ? "*" : " ");
            else
                std::printf(" %9s", "-");
            for (const auto& [name, width] : {std::pair{"frames", 8}, {"2 threads", 9}}) {
                if (t.count(name))
                    std::printf(" %*.2f", width, t[name] / mine);
                else
                    std::printf(" %*s", width, "-");
            }
            std::printf("\n");
        }
        std::printf("\nlibyuv, opencv, swscale: multiples of copying the same bytes, like 'x copy'; * = not below "
                    "the best\nframes, 2 threads: the same by tavi_frame_convert(), multiples of ours\n");
    }
    void add(const std::string& row) { order_.push_back(row); }

private:
    std::vector<std::string> order_;
    std::map<std::string, std::map<std::string, double>> times_;
};

} // namespace
} // namespace tavi::bench

int main(int argc, char** argv) {
    using namespace tavi::bench;
    std::vector<char*> args(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true", repeat[] = "--benchmark_repetitions=5",
         least[] = "--benchmark_min_time=0.02";
    args.insert(args.begin() + 1, {interleave, repeat, least}); // the user's own come later and win
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    Table table;
    for (const Row& row : all_rows()) {
        const Run runs[] = {ours(row),       by_copying(row), by_libyuv(row),     by_opencv(row),
                            by_swscale(row), by_frames(row),  by_two_threads(row)};
        for (size_t i = 0; i < std::size(runs); ++i)
            if (runs[i])
                benchmark::RegisterBenchmark((row.name + "|" + kCandidates[i]).c_str(), [run = runs[i]](
                                                                                            benchmark::State& state) {
                    for (auto _ : state)
                        run();
                })->UseRealTime();
        table.add(row.name);
    }
    benchmark::RunSpecifiedBenchmarks(&table);
}
