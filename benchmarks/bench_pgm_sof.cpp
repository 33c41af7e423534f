// Reading the largest die's design (KS470, a 32 MiB stream) through the programmer library, against
// reading the same file into freshly allocated memory with one fread, in the same process. The
// library also checks the file's checksum and every frame's CRC-16; x_plain_read is its time over
// the plain read's.
#include "pgm.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unistd.h>

namespace {

// KS470's design in a temporary directory that lasts as long as the run.
class DESIGN_FILE {
public:
    DESIGN_FILE()
    {
        char pattern[] = "/tmp/bench_pgm_sof.XXXXXX";
        m_dir = mkdtemp(pattern);
        m_path = m_dir + "/ks470.sof";
        const PGM_DEVICE device(*PGM_DEVICE_DATABASE::find_die("KS470"));
        if (!pgm_sof_write(m_path, pgm_compile_design(device, 1)))
            std::abort();
    }
    ~DESIGN_FILE()
    {
        unlink(m_path.c_str());
        rmdir(m_dir.c_str());
    }
    const std::string& path() const { return m_path; }

private:
    std::string m_dir;
    std::string m_path;
};

const std::string& design_path()
{
    static const DESIGN_FILE file;
    return file.path();
}

std::size_t file_size(const std::string& path)
{
    FILE* file = std::fopen(path.c_str(), "rb");
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::fclose(file);
    return static_cast<std::size_t>(size);
}

double plain_read_seconds()
{
    const std::size_t size = file_size(design_path());
    const auto start = std::chrono::steady_clock::now();
    std::unique_ptr<unsigned char[]> buffer(new unsigned char[size]);
    FILE* file = std::fopen(design_path().c_str(), "rb");
    const std::size_t read = std::fread(buffer.get(), 1, size, file);
    std::fclose(file);
    benchmark::DoNotOptimize(read);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_PlainRead(benchmark::State& state)
{
    for (auto _ : state)
        plain_read_seconds();
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file_size(design_path())));
}

void BM_ChainElementRead(benchmark::State& state)
{
    double element_seconds = 0, baseline_seconds = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        PGM_CHAIN_ELEMENT element(nullptr);
        element.set_design_file(design_path());
        if (!element.create_chain_element(1, 0, nullptr, 0, 0, 0))
            state.SkipWithError(element.get_error().c_str());
        benchmark::DoNotOptimize(element.get_bit_vector_list().data());
        element_seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.PauseTiming();
        baseline_seconds += plain_read_seconds();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file_size(design_path())));
    state.counters["x_plain_read"] = element_seconds / baseline_seconds;
}

} // namespace

BENCHMARK(BM_PlainRead)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ChainElementRead)->Unit(benchmark::kMillisecond);
