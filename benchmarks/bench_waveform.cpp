// The debug waveform viewer at 1,024, 131,072 and 4,194,304 samples, each figure against a
// baseline measured in the same process:
//   - capture: Start on the simulated bench (every sample read over JTAG), the trace drawn, Save,
//     then the panel closed. Time against the engine's plain sample reads of the same depth
//     (x_reads), peak resident memory against the trace's own bytes (x_trace), closing against
//     closing a panel that never held a trace (x_empty_close);
//   - repaint: the whole widget (ruler, names, values, waves) at 1:1, at an intermediate zoom and
//     fully zoomed out, against repainting the same widget without a trace (x_empty);
//   - cursor move, find edge, find value and go to sample, each with the repaint it causes,
//     against the same empty repaint.
// After the runs a summary gives the growth between sizes (1.0 is linear) and checks the issues'
// budgets: a 4,194,304-sample capture drawn and saved within 10 s and 1 GB resident and closed
// within 1 s; a repaint of 131,072 samples under 30 ms at any zoom; cursor move and find under
// 10 ms.
#include "pgmdq_debug_waveform_viewer.h"

#include "tfcq.h"
#include "wave/wave_panel_driver.h"
#include "wave/wave_test_trace.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QGraphicsView>
#include <QTemporaryDir>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <malloc.h>
#include <map>
#include <string>

namespace {

const int CAPTURE_SIZES[] = {131072, 4194304};
const int VIEW_SIZES[] = {1024, 131072, 4194304};
const char* const DUT_CABLE = "DUT-USB [1-2]";

double seconds_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

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
void reset_peak_rss()
{
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
}

bool load_bench_with_depth(int depth)
{
    return wave_test::load_bench(QJsonArray{wave_test::cable(
        DUT_CABLE, {wave_test::device("BR5-TV1-ES", "0x0B4150F3", QJsonObject{{"seed", 1}, {"depth", depth}, {"feature", 1}})})});
}

// The baseline of a capture: the same samples read through the engine, nothing else.
double engine_reads_seconds(int depth)
{
    PGMD_CM_ENGINE engine(pgmd_cm_site_bench());
    pgmwq_set_preset_answer(DUT_CABLE);
    unsigned hardware = 0;
    pgmwq_export_hardware_dlg(&hardware);
    engine.set_tji_hardware(true, hardware);
    unsigned count = 0;
    int error = 0;
    delete[] engine.scan_chain(true, &count, &error);
    engine.set_dut_count(count);
    engine.startup_hardware(true, false);
    engine.determine_dut_sld_node(0, 4);
    engine.load_jtag_virtual_instruction(true, 0xE02, 0, false, true);
    unsigned char sample[5];
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < depth; ++i)
        engine.read_dr_data(true, 37, sample, 0);
    const double seconds = seconds_since(start);
    engine.unlock_hardware(true);
    engine.set_dut_count(0);
    return seconds;
}

// Closing a panel that never held a trace: the fixed cost of a close.
double empty_close_seconds()
{
    auto* panel = new PGMDQ_DEBUG_WAVEFORM_VIEWER;
    panel->resize(1200, 800);
    panel->show();
    QApplication::processEvents();
    const auto start = std::chrono::steady_clock::now();
    delete panel;
    QApplication::processEvents();
    return seconds_since(start);
}

void BM_capture_draw_save_close(benchmark::State& state)
{
    const int depth = int(state.range(0));
    if (!load_bench_with_depth(depth)) {
        state.SkipWithError("bench not loaded");
        return;
    }
    QTemporaryDir dir;
    const double reads = engine_reads_seconds(depth);
    const double empty_close = empty_close_seconds();
    double capture = 0, save = 0, close = 0;
    long peak_kb = 0, added_kb = 0;
    for (auto _ : state) {
        reset_peak_rss();
        const long before_kb = proc_status_kb("VmRSS");
        auto* panel = new PGMDQ_DEBUG_WAVEFORM_VIEWER;
        panel->resize(1200, 800);
        panel->show();
        QApplication::processEvents();
        wave_test::choose_and_scan(panel, DUT_CABLE);

        auto start = std::chrono::steady_clock::now();
        wave_test::click(panel, "Start");
        QApplication::processEvents(); // the first paint of the new trace
        capture = seconds_since(start);
        if (panel->waveform_widget()->waveform_depth() != unsigned(depth))
            state.SkipWithError("capture incomplete");

        TFCQ_FILE_DLG::preset_answer(dir.filePath("capture"));
        start = std::chrono::steady_clock::now();
        wave_test::click(panel, "Save");
        save = seconds_since(start);
        if (QFile(dir.filePath("capture.wvf")).size() != 12 + 5 * qint64(depth))
            state.SkipWithError("save incomplete");
        peak_kb = proc_status_kb("VmHWM");
        added_kb = peak_kb - before_kb;

        start = std::chrono::steady_clock::now();
        delete panel;
        QApplication::processEvents();
        close = seconds_since(start);
        state.SetIterationTime(capture + save + close);
    }
    state.counters["capture_s"] = capture;
    state.counters["save_s"] = save;
    state.counters["close_ms"] = close * 1000;
    state.counters["peak_rss_MB"] = peak_kb / 1024.0;
    state.counters["added_MB"] = added_kb / 1024.0;
    state.counters["x_reads"] = (capture + save) / reads;
    state.counters["x_trace"] = added_kb * 1024.0 / (5.0 * depth);
    state.counters["x_empty_close"] = close / empty_close;
}
BENCHMARK(BM_capture_draw_save_close)
    ->Arg(CAPTURE_SIZES[0])
    ->Arg(CAPTURE_SIZES[1])
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// A shown widget with a trace of `depth` samples (none for 0), the primary cursor in the middle.
class SHOWN_TRACE {
public:
    explicit SHOWN_TRACE(int depth)
    {
        m_widget.resize(1200, 700);
        m_widget.show();
        QApplication::processEvents();
        if (depth > 0) {
            m_samples = wave_test::structured_trace(std::size_t(depth));
            wave_test::draw(m_widget, m_samples);
            m_widget.go_to_sample(QString::number(depth / 2));
            m_widget.select_row(5); // sdr: edges every few dozen samples
        }
        QApplication::processEvents();
    }

    PGMDQ_DEBUG_WAVEFORM_WIDGET& widget() { return m_widget; }
    const std::vector<std::uint64_t>& samples() const { return m_samples; }

    // Zoom 0: 1:1; 2: fully zoomed out; 1: halfway between, on a log scale.
    void zoom(int level)
    {
        const double fit = m_widget.min_zoom();
        const double zoom = level == 0 ? 1.0 : level == 2 ? fit : std::sqrt(fit);
        m_widget.set_zoom(zoom, m_widget.viewport_x_of(m_widget.primary_cursor()));
        QApplication::processEvents();
    }

    // Everything the widget shows that depends on the trace, painted now (a repaint of the
    // top-level widget alone would leave its children's pictures as they were).
    void repaint()
    {
        m_widget.waveform_view()->viewport()->repaint();
        m_widget.text_view()->viewport()->repaint();
        m_widget.ruler()->repaint();
        m_widget.values_column()->repaint();
    }

private:
    PGMDQ_DEBUG_WAVEFORM_WIDGET m_widget;
    std::vector<std::uint64_t> m_samples;
};

// The whole widget repainted once, without a trace: every view figure is measured against it.
double empty_repaint_seconds()
{
    static double seconds = [] {
        SHOWN_TRACE empty(0);
        for (int i = 0; i < 5; ++i)
            empty.repaint();
        const int rounds = 50;
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < rounds; ++i)
            empty.repaint();
        return seconds_since(start) / rounds;
    }();
    return seconds;
}

// One shown trace at a time, kept for all the view benchmarks of its size (they run size by size).
std::unique_ptr<SHOWN_TRACE> g_shown_trace;
int g_shown_depth = -1;

SHOWN_TRACE& shown_trace(int depth)
{
    if (!g_shown_trace || g_shown_depth != depth) {
        g_shown_trace.reset();
        g_shown_trace = std::make_unique<SHOWN_TRACE>(depth);
        g_shown_depth = depth;
    }
    return *g_shown_trace;
}

void report_against_empty(benchmark::State& state, double seconds_per_iteration)
{
    state.counters["ms"] = seconds_per_iteration * 1000;
    state.counters["x_empty"] = seconds_per_iteration / empty_repaint_seconds();
}

void BM_repaint(benchmark::State& state)
{
    empty_repaint_seconds();
    SHOWN_TRACE& trace = shown_trace(int(state.range(0)));
    trace.zoom(int(state.range(1)));
    trace.repaint();
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
        trace.repaint();
    report_against_empty(state, seconds_since(start) / double(state.iterations()));
}

// Moves the primary cursor by one sample and lets the window repaint what changed (the cursor's
// old and new strips, the ruler, the values).
void BM_cursor_move(benchmark::State& state)
{
    empty_repaint_seconds();
    SHOWN_TRACE& trace = shown_trace(int(state.range(0)));
    trace.zoom(0);
    PGMDQ_DEBUG_WAVEFORM_WIDGET& widget = trace.widget();
    const int middle = int(state.range(0)) / 2;
    int step = 1;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        widget.set_primary_cursor(std::uint32_t(middle + step));
        QApplication::processEvents();
        step = -step;
    }
    report_against_empty(state, seconds_since(start) / double(state.iterations()));
}

// Finds (and shows) the next edge of sdr, then the previous one: one find per iteration.
void BM_find_edge(benchmark::State& state)
{
    empty_repaint_seconds();
    SHOWN_TRACE& trace = shown_trace(int(state.range(0)));
    trace.zoom(0);
    PGMDQ_DEBUG_WAVEFORM_WIDGET& widget = trace.widget();
    bool forward = true;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        widget.find_edge(forward);
        QApplication::processEvents();
        forward = !forward;
    }
    report_against_empty(state, seconds_since(start) / double(state.iterations()));
}

// Finds a value of total_bit_count that it never holds: the search reads every run of the trace
// (the worst case), and says so.
void BM_find_value_absent(benchmark::State& state)
{
    empty_repaint_seconds();
    SHOWN_TRACE& trace = shown_trace(int(state.range(0)));
    trace.zoom(0);
    PGMDQ_DEBUG_WAVEFORM_WIDGET& widget = trace.widget();
    widget.select_row(13);
    widget.set_primary_cursor(0);
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        widget.find_value("FFF", true);
        QApplication::processEvents();
    }
    report_against_empty(state, seconds_since(start) / double(state.iterations()));
    widget.select_row(5);
}

// Goes to a sample far from the one shown (scrolling there and repainting).
void BM_go_to_sample(benchmark::State& state)
{
    empty_repaint_seconds();
    SHOWN_TRACE& trace = shown_trace(int(state.range(0)));
    trace.zoom(0);
    PGMDQ_DEBUG_WAVEFORM_WIDGET& widget = trace.widget();
    const QString targets[] = {QString::number(state.range(0) / 4), QString::number(3 * state.range(0) / 4)};
    int next = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        widget.go_to_sample(targets[next]);
        QApplication::processEvents();
        next = 1 - next;
    }
    report_against_empty(state, seconds_since(start) / double(state.iterations()));
}

// The view benchmarks, size by size so that one trace at a time is drawn.
void register_view_benchmarks()
{
    for (int depth : VIEW_SIZES) {
        for (int zoom : {0, 1, 2})
            benchmark::RegisterBenchmark("BM_repaint", BM_repaint)->Args({depth, zoom})->Unit(benchmark::kMillisecond)->MinTime(0.3);
        benchmark::RegisterBenchmark("BM_cursor_move", BM_cursor_move)->Arg(depth)->Unit(benchmark::kMillisecond)->MinTime(0.3);
        benchmark::RegisterBenchmark("BM_find_edge", BM_find_edge)->Arg(depth)->Unit(benchmark::kMillisecond)->MinTime(0.3);
        benchmark::RegisterBenchmark("BM_find_value_absent", BM_find_value_absent)
            ->Arg(depth)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.3);
        benchmark::RegisterBenchmark("BM_go_to_sample", BM_go_to_sample)->Arg(depth)->Unit(benchmark::kMillisecond)->MinTime(0.3);
    }
}

// Keeps each run's counters so that sizes can be compared and budgets checked after the runs.
class SUMMARY_REPORTER : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                std::map<std::string, double>& figures = m_figures[run.run_name.function_name][run.run_name.args];
                for (const auto& [name, counter] : run.counters)
                    figures[name] = counter.value;
            }
    }

    int print_summary() const
    {
        int over_budget = 0;
        const auto check = [&](const char* what, double value, double budget, const char* unit) {
            const bool within = value < budget;
            over_budget += !within;
            std::printf("  %-58s %10.2f %-3s (budget %g %s) %s\n", what, value, unit, budget, unit,
                        within ? "ok" : "OVER BUDGET");
        };
        std::printf("\nBudgets:\n");
        const auto capture = figure("BM_capture_draw_save_close", "4194304");
        if (!capture.empty()) {
            check("4,194,304 samples: capture, draw and save", capture.at("capture_s") + capture.at("save_s"), 10, "s");
            check("4,194,304 samples: peak resident memory", capture.at("peak_rss_MB"), 1024, "MB");
            check("4,194,304 samples: closing the panel", capture.at("close_ms"), 1000, "ms");
        }
        for (const char* zoom : {"0", "1", "2"}) {
            const auto repaint = figure("BM_repaint", std::string("131072/") + zoom);
            if (!repaint.empty())
                check((std::string("131,072 samples: repaint, zoom level ") + zoom).c_str(), repaint.at("ms"), 30, "ms");
        }
        for (const char* name : {"BM_cursor_move", "BM_find_edge", "BM_find_value_absent", "BM_go_to_sample"}) {
            const auto found = figure(name, "131072");
            if (!found.empty())
                check((std::string("131,072 samples: ") + name).c_str(), found.at("ms"), 10, "ms");
        }

        std::printf("\nGrowth from 131,072 to 4,194,304 samples (x32; 1.0 is linear, below 1 is sublinear):\n");
        const auto growth = [&](const char* name, const std::string& small, const std::string& large, const char* key) {
            const auto a = figure(name, small);
            const auto b = figure(name, large);
            const std::string what = std::string(name) + small.substr(small.find('/') == std::string::npos ? small.size() : small.find('/'));
            if (!a.empty() && !b.empty() && a.at(key) > 0)
                std::printf("  %-30s %-12s x%-8.2f growth %.3f\n", what.c_str(), key, b.at(key) / a.at(key),
                            b.at(key) / a.at(key) / 32);
        };
        growth("BM_capture_draw_save_close", "131072", "4194304", "capture_s");
        growth("BM_capture_draw_save_close", "131072", "4194304", "added_MB");
        growth("BM_capture_draw_save_close", "131072", "4194304", "close_ms");
        for (const char* zoom : {"/0", "/1", "/2"})
            growth("BM_repaint", std::string("131072") + zoom, std::string("4194304") + zoom, "ms");
        for (const char* name : {"BM_cursor_move", "BM_find_edge", "BM_find_value_absent", "BM_go_to_sample"})
            growth(name, "131072", "4194304", "ms");
        return over_budget;
    }

private:
    std::map<std::string, double> figure(const std::string& name, const std::string& args) const
    {
        const auto function = m_figures.find(name);
        if (function == m_figures.end())
            return {};
        const auto run = function->second.find(args);
        return run == function->second.end() ? std::map<std::string, double>() : run->second;
    }

    std::map<std::string, std::map<std::string, std::map<std::string, double>>> m_figures;
};

} // namespace

int main(int argc, char** argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    register_view_benchmarks();
    SUMMARY_REPORTER reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    g_shown_trace.reset();
    const int over_budget = reporter.print_summary();
    benchmark::Shutdown();
    return over_budget == 0 ? 0 : 1;
}
