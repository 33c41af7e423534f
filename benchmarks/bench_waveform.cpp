// Drawing, saving and opening traces of the debug IP at 1,024, 16,384 and 131,072 samples.
// Drawing is the widget's draw_waveform (both scenes built) plus one render of the visible part of
// the wave view into an image. Each size reports its time and the peak resident memory it added;
// the summary gives the growth between sizes against the growth of the trace (1.0 = linear).
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_test_trace.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QDir>
#include <QGraphicsView>
#include <QImage>
#include <QPainter>

#include <cstdio>
#include <malloc.h>
#include <fstream>
#include <map>
#include <string>

namespace {

const int TRACE_SIZES[] = {1024, 16384, 131072};

// Resident memory in kB from /proc: the current size, or the peak since the last reset.
long proc_status_kb(const char* field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string key = std::string(field) + ":";
    while (std::getline(status, line))
        if (line.compare(0, key.size(), key) == 0)
            return std::stol(line.substr(key.size()));
    return 0;
}

// Starts a new peak: freed heap goes back to the system first, so that the resident size counts
// only memory in use, then the kernel resets the high-water mark to that size.
long reset_peak_rss_kb()
{
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
    return proc_status_kb("VmRSS");
}

void report_peak(benchmark::State& state, long baseline_kb)
{
    state.counters["peak_MB"] = double(proc_status_kb("VmHWM") - baseline_kb) / 1024.0;
}

class TRACE_WIDGET {
public:
    explicit TRACE_WIDGET(int samples) : m_samples(wave_test::structured_trace(std::size_t(samples)))
    {
        m_widget.resize(1200, 700);
        m_widget.show();
        QApplication::processEvents();
    }

    void draw()
    {
        wave_test::draw(m_widget, m_samples);
        QGraphicsView* view = m_widget.waveform_view();
        QImage image(view->viewport()->size(), QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&image);
        view->render(&painter);
    }

    PGMDQ_DEBUG_WAVEFORM_WIDGET& widget() { return m_widget; }

private:
    std::vector<std::uint64_t> m_samples;
    PGMDQ_DEBUG_WAVEFORM_WIDGET m_widget;
};

void BM_draw_waveform(benchmark::State& state)
{
    TRACE_WIDGET trace(int(state.range(0)));
    const long baseline_kb = reset_peak_rss_kb();
    for (auto _ : state)
        trace.draw();
    report_peak(state, baseline_kb);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_draw_waveform)->Arg(1024)->Arg(16384)->Arg(131072)->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);

void BM_save_and_open(benchmark::State& state)
{
    TRACE_WIDGET trace(int(state.range(0)));
    trace.draw();
    const std::string path = QDir::temp().filePath("bench_waveform.wvf").toStdString();
    const long baseline_kb = reset_peak_rss_kb();
    for (auto _ : state) {
        trace.widget().save_waveform(path);
        trace.widget().open_waveform(path);
    }
    report_peak(state, baseline_kb);
    state.SetComplexityN(state.range(0));
    std::remove(path.c_str());
}
BENCHMARK(BM_save_and_open)->Arg(1024)->Arg(16384)->Arg(131072)->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);

// Collects each run's time per iteration so that the sizes can be compared after the runs.
class GROWTH_REPORTER : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.report_big_o && !run.report_rms)
                m_times[run.run_name.function_name][std::stoi(run.run_name.args)] =
                    run.GetAdjustedRealTime();
    }

    void print_growth() const
    {
        std::printf("\nGrowth between sizes (time ratio / size ratio; 1.0 is linear):\n");
        for (const auto& [name, times] : m_times) {
            const std::pair<const int, double>* previous = nullptr;
            for (const auto& entry : times) {
                if (previous) {
                    const double time_ratio = entry.second / previous->second;
                    const double size_ratio = double(entry.first) / previous->first;
                    std::printf("  %-18s %6d -> %6d: time x%.2f for size x%.0f, growth %.2f\n", name.c_str(),
                                previous->first, entry.first, time_ratio, size_ratio, time_ratio / size_ratio);
                }
                previous = &entry;
            }
        }
    }

private:
    std::map<std::string, std::map<int, double>> m_times;
};

} // namespace

int main(int argc, char** argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    GROWTH_REPORTER reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_growth();
    benchmark::Shutdown();
    return 0;
}
