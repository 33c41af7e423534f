// The waveform viewer's unattended runs: the capture and usedw commands, which go through the
// panel's own steps ("Setup ...", "Scan ...", "Reset", "Start", "Read USEDW", "Save", "Export
// VCD...") with the cable, the device and the files given instead of chosen in dialogs.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"

#include "pgmdq_miscellaneous_files.h"
#include "pgmdq_miscellaneous_junit.h"
#include "pgmdq_tcl_commands.h"

#include "fio.h"
#include "pgmd_cm.h"

#include <QComboBox>
#include <QFileInfo>
#include <QLineEdit>

#include <algorithm>

namespace {

// What the panel posts while a command runs: its log lines. The lines are kept, not shown; the
// command posts them as its own progress when it is done. Debug lines pass through.
class POSTED_LINES : public MSG_SINK {
public:
    POSTED_LINES() : m_previous(msg_get_sink()) { msg_set_sink(this); }
    ~POSTED_LINES() override { msg_set_sink(m_previous); }
    POSTED_LINES(const POSTED_LINES&) = delete;
    POSTED_LINES& operator=(const POSTED_LINES&) = delete;

    void receive(MSG_KIND kind, int id, const std::string& text) override
    {
        if (kind != MSG_KIND::DEBUG)
            m_lines.push_back(text);
        else if (m_previous)
            m_previous->receive(kind, id, text);
    }
    const std::vector<std::string>& lines() const { return m_lines; }

private:
    MSG_SINK* m_previous;
    std::vector<std::string> m_lines;
};


bool device_number(const TTCL_ARGS& args, unsigned* device, std::string* error)
{
    if (!args.is_set(PGMDQ_TCL_OPTION_DEVICE)) {
        *device = 1;
        return true;
    }
    const std::string& text = args.value(PGMDQ_TCL_OPTION_DEVICE);
    bool number = false;
    *device = QString::fromStdString(text).toUInt(&number, 10);
    if (number && *device > 0)
        return true;
    *error = "-device is a place on the chain from 1, not \"" + text + "\"";
    return false;
}

// The file an option names, with the extension its dialog adds.
std::string target_file(const TTCL_ARGS& args, int option, const char* extension)
{
    FIO_PATH path(args.value(option));
    path.extension(extension, "");
    return path.fullpath();
}

// Told before the hardware is touched: a capture is not made to be thrown away.
bool check_writable(const TTCL_ARGS& args, int option, const char* word, const char* extension, std::string* error)
{
    if (!args.is_set(option))
        return true;
    const QFileInfo file(pgmdq_from_local8(target_file(args, option, extension)));
    const QFileInfo folder(file.absolutePath());
    std::string reason;
    if (!folder.isDir())
        reason = "no folder " + pgmdq_local8(folder.filePath());
    else if (file.isDir())
        reason = "a folder has that name";
    else if (file.exists() ? !file.isWritable() : !folder.isWritable())
        reason = "not writable";
    if (reason.empty())
        return true;
    *error = "cannot write -" + std::string(word) + " \"" + pgmdq_local8(file.filePath()) + "\": " + reason;
    return false;
}

// Each posted line as the command's progress, as the framework posts its summary.
void post_progress(const char* command, const std::vector<std::string>& lines)
{
    for (const std::string& line : lines)
        msg_post(MSG_PGMDQ::I::PGMDQ_COMMON_MSG(command + std::string(": ") + line));
}

PGMDQ_JUNIT_CASE test_case(const char* name, bool passed, const std::vector<std::string>& lines,
                           const std::string& reason)
{
    PGMDQ_JUNIT_CASE test;
    test.name = name;
    test.outcome = passed ? PGMDQ_JUNIT_CASE::PASSED : PGMDQ_JUNIT_CASE::FAILED;
    test.lines = lines;
    if (!passed)
        test.message = reason;
    return test;
}

void add_suite(const char* command, const std::string& device, PGMDQ_JUNIT_CASE test, PGMDQ_TCL_RESULT* result)
{
    PGMDQ_JUNIT_SUITE suite;
    suite.name = command + std::string(".") + device;
    suite.cases.push_back(std::move(test));
    result->suites.push_back(std::move(suite));
}

} // namespace

bool PGMDQ_DEBUG_WAVEFORM_VIEWER::choose_device(const std::string& cable, unsigned device, std::string* error)
{
    unsigned hardware = 0;
    if (!pgmdq_tcl_hardware_handle(*pgmd_cm_site_bench(), cable, &hardware, error))
        return false;
    if (!set_hardware(hardware)) {
        *error = "the JTAG hardware \"" + cable + "\" cannot be used";
        return false;
    }
    on_device();
    const std::size_t count = m_device_id.size();
    if (count == 0)
        *error = "the chain of \"" + cable + "\" could not be scanned or holds no device";
    else if (device > count)
        *error = "the chain of \"" + cable + "\" has " + std::to_string(count) + " device(s), no device " +
                 std::to_string(device);
    if (!error->empty())
        return false;
    m_device_combo->setCurrentIndex(int(device - 1));
    return true;
}

std::string PGMDQ_DEBUG_WAVEFORM_VIEWER::device_text() const
{
    return pgmdq_local8(m_hardware_edit->text() + ' ' + m_device_combo->currentText());
}

// A reset that finds no IP has told why; "Start" would only tell it again.
bool PGMDQ_DEBUG_WAVEFORM_VIEWER::capture(bool reset)
{
    return (!reset || reset_trace()) && start_capture();
}

// The capture command: one test case, passed when the whole trace memory was read, failed with
// the panel's own message when a hardware step failed; the trace then saved and exported when
// asked. Bad arguments, an unknown cable or device and a file that cannot be written stop it.
bool pgmdq_capture(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error)
{
    unsigned device = 0;
    if (!device_number(args, &device, error) ||
        !check_writable(args, PGMDQ_TCL_OPTION_WVF, "wvf", ".wvf", error) ||
        !check_writable(args, PGMDQ_TCL_OPTION_VCD, "vcd", ".vcd", error))
        return false;
    PGMDQ_DEBUG_WAVEFORM_VIEWER panel;
    if (!panel.choose_device(args.value(PGMDQ_TCL_OPTION_CABLE), device, error))
        return false;
    bool captured = false;
    bool written = true;
    {
        const POSTED_LINES posted;
        captured = panel.capture(args.is_set(PGMDQ_TCL_OPTION_RESET));
        if (captured && args.is_set(PGMDQ_TCL_OPTION_WVF))
            written = panel.save_trace(args.value(PGMDQ_TCL_OPTION_WVF));
        if (captured && written && args.is_set(PGMDQ_TCL_OPTION_VCD))
            written = panel.export_vcd(args.value(PGMDQ_TCL_OPTION_VCD));
        result->log = posted.lines();
    }
    post_progress("capture", result->log);
    if (!written) {
        *error = result->log.empty() ? "the trace could not be written" : result->log.back();
        return false;
    }
    add_suite("capture", panel.device_text(),
              test_case("capture", captured, result->log,
                        result->log.empty() ? "the trace was not captured" : result->log.back()),
              result);
    return true;
}

// The usedw command: one test case, passed with the count the panel read and posted; the panel
// says nothing when the read fails, so the case says it.
bool pgmdq_usedw(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error)
{
    unsigned device = 0;
    if (!device_number(args, &device, error))
        return false;
    PGMDQ_DEBUG_WAVEFORM_VIEWER panel;
    if (!panel.choose_device(args.value(PGMDQ_TCL_OPTION_CABLE), device, error))
        return false;
    std::uint32_t count = 0;
    bool read = false;
    {
        const POSTED_LINES posted;
        read = panel.read_usedw(&count);
        result->log = posted.lines();
    }
    post_progress("usedw", result->log);
    add_suite("usedw", panel.device_text(),
              test_case("usedw", read, result->log, "the USEDW count could not be read"), result);
    return true;
}
