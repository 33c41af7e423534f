// The POF checker's hot paths, each against a baseline measured in the same process:
//   - the column-major CRC-32: the table-driven form against its bit-serial definition
//     (x_definition = how many times faster), on one long range and on frame-sized ranges;
//   - DAT reading (both passes) against one plain getline-per-line pass (x_getline);
//   - the CRC-16 cache lookup against a linear search of the cache lists (x_linear), as the cache
//     grows;
//   - the whole comparison of one SOF of the largest die (KS470, 32 MiB stream) and its steps:
//     ICD RBF from the DAT, PGM RBF from the SOF, patching and comparison.
// Data is generated into temporary files that are removed at the end.
#include "pgmdq_pof_checker.h"

#include "../tests/pof_checker_access.h"
#include "../tests/pof_dat_reference.h"
#include "pgm.h"

#include <QApplication>
#include <QListWidget>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

double thread_cpu_seconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// CPU time of this thread (kernel time of its reads included), so that other work on the
// machine does not skew the ratios.
template <typename BODY>
double seconds_of(BODY&& body)
{
    const double start = thread_cpu_seconds();
    body();
    return thread_cpu_seconds() - start;
}

// A temporary directory for the run, removed when the program ends.
class TEMP_DIR {
public:
    TEMP_DIR()
    {
        char pattern[] = "/tmp/bench_pof.XXXXXX";
        m_path = std::string(mkdtemp(pattern)) + "/";
    }
    ~TEMP_DIR() { std::system(("rm -rf " + m_path).c_str()); }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

const std::string& temp_dir()
{
    static const TEMP_DIR dir;
    return dir.path();
}

PGMDQ_POF_CHECKER& checker()
{
    static PGMDQ_POF_CHECKER panel;
    return panel;
}

// ---- CRC-32 ---------------------------------------------------------------------------------

const unsigned CB_DATA_WIDTH = 32;

const std::vector<unsigned char>& crc_data()
{
    static const std::vector<unsigned char> data = [] {
        std::vector<unsigned char> bytes(16u << 20);
        std::mt19937 random(1);
        for (auto& byte : bytes)
            byte = (unsigned char)random();
        return bytes;
    }();
    return data;
}

// The definition's time per byte over 1 MiB, the best of three runs.
double definition_seconds_per_byte()
{
    static const double per_byte = [] {
        const unsigned bytes = 1u << 20;
        double best = 1e9;
        for (int run = 0; run < 3; ++run)
            best = std::min(best, seconds_of([&] {
                benchmark::DoNotOptimize(PGMDQ_POF_CHECKER::calculate_crc32_by_columns(crc_data().data(), 0,
                                                                                       bytes * 8, 1, CB_DATA_WIDTH));
            }));
        return best / bytes;
    }();
    return per_byte;
}

void BM_Crc32ColumnDefinition(benchmark::State& state)
{
    const unsigned bytes = unsigned(state.range(0));
    crc_data();
    for (auto _ : state)
        benchmark::DoNotOptimize(
            PGMDQ_POF_CHECKER::calculate_crc32_by_columns(crc_data().data(), 0, bytes * 8, 1, CB_DATA_WIDTH));
    state.SetBytesProcessed(std::int64_t(state.iterations()) * bytes);
}

void BM_Crc32Fast(benchmark::State& state)
{
    const unsigned bytes = unsigned(state.range(0));
    double seconds = 0;
    for (auto _ : state)
        seconds += seconds_of([&] {
            benchmark::DoNotOptimize(
                PGMDQ_POF_CHECKER::calculate_crc32(crc_data().data(), 0, bytes * 8, 1, CB_DATA_WIDTH, false));
        });
    state.SetBytesProcessed(std::int64_t(state.iterations()) * bytes);
    state.counters["x_definition"] = definition_seconds_per_byte() * bytes * double(state.iterations()) / seconds;
}

// As the patching calls it: one call per 8192-bit frame, over the frame's data words.
void BM_Crc32FastPerFrame(benchmark::State& state)
{
    const unsigned frame_bits = 8192;
    const unsigned data_bits = frame_bits - 64 - CB_DATA_WIDTH;
    const size_t frames = crc_data().size() * 8 / frame_bits;
    double seconds = 0;
    for (auto _ : state)
        seconds += seconds_of([&] {
            for (size_t f = 0; f < frames; ++f)
                benchmark::DoNotOptimize(PGMDQ_POF_CHECKER::calculate_crc32(
                    crc_data().data(), unsigned(f * frame_bits + CB_DATA_WIDTH), data_bits, 1, CB_DATA_WIDTH, false));
        });
    const double bytes = double(frames) * data_bits / 8;
    state.SetBytesProcessed(std::int64_t(state.iterations() * bytes));
    state.counters["x_definition"] = definition_seconds_per_byte() * bytes * double(state.iterations()) / seconds;
}

// ---- DAT reading ----------------------------------------------------------------------------

// 10.5 million words as the emulator writes them, with a comment line before each 4096 words.
const std::string& dat_path()
{
    static const std::string path = [] {
        const std::string file = temp_dir() + "large.dat";
        std::string text = "// ICD control block data\n";
        std::mt19937 random(2);
        const char* digits = "0123456789ABCDEF";
        for (unsigned word = 0; word < 10500000u; ++word) {
            if (word % 4096 == 0)
                text += "// segment " + std::to_string(word / 4096) + "\n";
            const unsigned value = random() & 0xFFFF;
            const char line[5] = {digits[value >> 12], digits[(value >> 8) & 15], digits[(value >> 4) & 15],
                                  digits[value & 15], '\n'};
            text.append(line, 5);
        }
        FILE* output = std::fopen(file.c_str(), "wb");
        std::fwrite(text.data(), 1, text.size(), output);
        std::fclose(output);
        return file;
    }();
    return path;
}

std::int64_t file_size(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? std::int64_t(info.st_size) : 0;
}

double getline_reading_seconds()
{
    std::vector<unsigned char> bytes;
    const double seconds = seconds_of([&] { pof_reference_read_dat(dat_path(), bytes); });
    benchmark::DoNotOptimize(bytes.data());
    return seconds;
}

void BM_DatGetlineBaseline(benchmark::State& state)
{
    dat_path();
    for (auto _ : state)
        getline_reading_seconds();
    state.SetBytesProcessed(state.iterations() * file_size(dat_path()));
}

void BM_ReadDat(benchmark::State& state)
{
    double seconds = 0, baseline_seconds = 0;
    unsigned count = 0;
    for (auto _ : state) {
        seconds += seconds_of([&] { delete[] checker().read_dat(dat_path(), count); });
        state.PauseTiming();
        baseline_seconds += getline_reading_seconds();
        state.ResumeTiming();
    }
    if (count != 10500000u)
        state.SkipWithError("wrong word count");
    state.SetBytesProcessed(state.iterations() * file_size(dat_path()));
    state.counters["x_getline"] = baseline_seconds / seconds;
}

// ---- CRC-16 cache lookup ----------------------------------------------------------------------

// A cache of `entries` entries whose last 48 are the ones a frame's patching looks up.
struct CRC_CACHE {
    PGMDQ_POF_CHECKER panel;
    std::vector<std::pair<unsigned, unsigned>> keys;  // what a linear search walks
    explicit CRC_CACHE(unsigned entries)
    {
        PGMDQ_POF_CHECKER_TEST_ACCESS access{panel};
        for (unsigned i = 0; i < entries; ++i) {
            const unsigned bits = 1u << 20 | (i / 48);
            keys.emplace_back(i % 48, bits);
            access.add_crc_entry(i % 48, bits, i & 0xFFFF);
        }
    }
    unsigned linear_lookup(unsigned index, unsigned bits) const
    {
        for (size_t i = 0; i < keys.size(); ++i)
            if (keys[i].first == index && keys[i].second == bits)
                return unsigned(i & 0xFFFF);
        return 0xFFFFFFFFu;
    }
};

// Seconds per round of the 48 lookups, over `rounds` rounds.
template <typename LOOKUP>
double lookup_round_seconds(int rounds, unsigned bits, LOOKUP&& lookup)
{
    return seconds_of([&] {
               for (int round = 0; round < rounds; ++round)
                   for (unsigned j = 0; j < 48; ++j)
                       benchmark::DoNotOptimize(lookup(j, bits));
           }) /
           rounds;
}

void BM_CrcLookup(benchmark::State& state)
{
    const unsigned entries = unsigned(state.range(0));
    CRC_CACHE cache(entries);
    const unsigned bits = cache.keys.back().second;
    const auto indexed = [&cache](unsigned index, unsigned length) { return cache.panel.check_crc_list(index, length); };
    const auto linear = [&cache](unsigned index, unsigned length) { return cache.linear_lookup(index, length); };
    indexed(0, bits);  // indexes the lists
    for (auto _ : state)
        for (unsigned j = 0; j < 48; ++j)
            benchmark::DoNotOptimize(indexed(j, bits));
    const double indexed_seconds = lookup_round_seconds(20000, bits, indexed);
    const double linear_seconds = lookup_round_seconds(std::max(1, int(200000 / entries)), bits, linear);
    state.SetItemsProcessed(state.iterations() * 48);
    state.counters["ns_per_lookup"] = indexed_seconds / 48 * 1e9;
    state.counters["x_linear"] = linear_seconds / indexed_seconds;
}

// ---- Comparison of one KS470 SOF ------------------------------------------------------------

const unsigned KESTREL = 3, KS470 = 17;

// The release maker's KS470 design, its image from the converter and its DAT from the emulator.
struct KS470_DESIGN {
    std::string sof;
    std::string dat;
    KS470_DESIGN()
    {
        const std::string release = temp_dir() + "release/";
        const std::string bin = PGMDQ_BIN_DIR;
        const std::string die_dir = release + "kestrel/KS470/";
        sof = die_dir + "ks470_design01.sof";
        const std::string base = die_dir + "ks470_design01";
        dat = base + ".dat";
        const std::string commands[] = {
            bin + "/pgm_release_maker --out " + release + " --sofs 1 --gzip-every 0 --dies KS470",
            release + "sof2img/kestrel_sof2img.exe " + sof + " " + base + ".img -s2i KS470",
            release + "icd_emulator/KS470/KS470 -o " + base + " -m3 -img " + base + ".img",
        };
        for (const std::string& command : commands)
            if (std::system((command + " > /dev/null").c_str()) != 0)
                std::abort();
    }
};

const KS470_DESIGN& ks470()
{
    static const KS470_DESIGN design;
    return design;
}

void ks470_prepare_panel()
{
    ks470();
    PGMDQ_POF_CHECKER_TEST_ACCESS{checker()}.set_family_die(KESTREL, KS470);
}

void BM_Ks470IcdRbfFromDat(benchmark::State& state)
{
    ks470_prepare_panel();
    for (auto _ : state)
        checker().create_icd_rbf(ks470().dat);
    state.SetBytesProcessed(state.iterations() * file_size(ks470().dat));
}

void BM_Ks470PgmRbfFromSof(benchmark::State& state)
{
    ks470_prepare_panel();
    for (auto _ : state)
        delete checker().create_pgm_rbf(ks470().sof);
    state.SetBytesProcessed(state.iterations() * file_size(ks470().sof));
}

void BM_Ks470PatchAndCompare(benchmark::State& state)
{
    ks470_prepare_panel();
    checker().create_icd_rbf(ks470().dat);
    const std::unique_ptr<PGM_CHAIN_ELEMENT> element(checker().create_pgm_rbf(ks470().sof));
    for (auto _ : state)
        checker().modify_crc_pgm_rbf(element.get(), ks470().sof);
    if (PGMDQ_POF_CHECKER_TEST_ACCESS{checker()}.last_log() != "Info: POF checking passed - " + ks470().sof)
        state.SkipWithError("the comparison did not pass");
}

void BM_Ks470WholeComparison(benchmark::State& state)
{
    ks470_prepare_panel();
    for (auto _ : state) {
        checker().create_icd_rbf(ks470().dat);
        const std::unique_ptr<PGM_CHAIN_ELEMENT> element(checker().create_pgm_rbf(ks470().sof));
        checker().modify_crc_pgm_rbf(element.get(), ks470().sof);
    }
    if (PGMDQ_POF_CHECKER_TEST_ACCESS{checker()}.last_log() != "Info: POF checking passed - " + ks470().sof)
        state.SkipWithError("the comparison did not pass");
}

} // namespace

BENCHMARK(BM_Crc32ColumnDefinition)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Crc32Fast)->Arg(1 << 20)->Arg(16 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Crc32FastPerFrame)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DatGetlineBaseline)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_ReadDat)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CrcLookup)->Arg(48)->Arg(48 << 6)->Arg(48 << 12)->Arg(48 << 15);
BENCHMARK(BM_Ks470IcdRbfFromDat)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Ks470PgmRbfFromSof)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Ks470PatchAndCompare)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Ks470WholeComparison)->Unit(benchmark::kMillisecond)->Iterations(3);

// The panel is a widget: an application object comes first.
int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
