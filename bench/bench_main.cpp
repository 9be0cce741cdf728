// The main of every benchmark program: runs the benchmarks, then prints for
// each pair "<case>/tessera" and "<case>/openssl" how long Tessera takes
// relative to the raw OpenSSL equivalent measured in the same run, and the
// same ratio for every counter both report (e.g. "peak_MiB"). With
// repetitions the ratio is that of the medians.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            // With repetitions the median stands for the case: on a busy
            // machine one repetition can be far off.
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (median) {
                m_medians.insert(run.run_name.str());
            } else if (run.run_type != Run::RT_Iteration || run.iterations <= 0 ||
                       m_medians.count(run.run_name.str()) != 0) {
                continue;
            }
            const std::string name = run.run_name.str();
            m_times[name] = run.GetAdjustedRealTime();
            for (const auto& counter : run.counters) {
                m_counters[name][counter.first] = counter.second.value;
            }
        }
    }

    void PrintRatios() const {
        const std::string ours = "/tessera";
        std::printf("\n%-48s %s\n", "case", "tessera / openssl");
        for (const auto& entry : m_times) {
            const std::string& name = entry.first;
            const std::size_t at = name.find(ours);
            if (at == std::string::npos) {
                continue;
            }
            std::string other = name;
            other.replace(at, ours.size(), "/openssl");
            const auto found = m_times.find(other);
            if (found == m_times.end() || found->second <= 0) {
                continue;
            }
            const std::string label = name.substr(0, at) + name.substr(at + ours.size());
            std::printf("%-48s %.3f\n", label.c_str(), entry.second / found->second);
            PrintCounterRatios(label, name, other);
        }
    }

private:
    void PrintCounterRatios(const std::string& label, const std::string& ours,
                            const std::string& theirs) const {
        const auto oursFound = m_counters.find(ours);
        const auto theirsFound = m_counters.find(theirs);
        if (oursFound == m_counters.end() || theirsFound == m_counters.end()) {
            return;
        }
        for (const auto& counter : oursFound->second) {
            const auto other = theirsFound->second.find(counter.first);
            if (other == theirsFound->second.end() || other->second <= 0 || counter.second < 0) {
                continue;
            }
            const std::string counterLabel = label + " " + counter.first;
            std::printf("%-48s %.3f\n", counterLabel.c_str(), counter.second / other->second);
        }
    }

    std::map<std::string, double> m_times;
    std::set<std::string> m_medians;
    std::map<std::string, std::map<std::string, double>> m_counters;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
