// The test manager: the batch's raw file and the run of its tests on the bench. The raw file is
// "kiopru_batch.raw" in the work directory (setting "kiopru/work_dir"); its format is described by
// the comment block every raw file starts with (RAW_FILE_HEADER).
#include "pgmd_cm.h"

#include "pgmd_cm_catalogue.h"
#include "pgmd_cm_controller.h"
#include "pgmd_cm_test_run.h"

#include "bench_protocol.h"
#include "gen.h"

#include "msg.h"

#include <QDir>
#include <QSaveFile>

#include <set>
#include <sstream>

namespace {

const char* const RAW_FILE_NAME = "kiopru_batch.raw";

const char* const RAW_FILE_HEADER =
    "# Kiopru raw test file: one test batch for the chain manager's bench runner.\n"
    "# Records are lines of tab-separated fields; lines starting with '#' are comments.\n"
    "#   KIOPRU_RAW <format version>\n"
    "#   BATCH <number of TEST records> <number of PROCESS records>\n"
    "#   PROCESS RUN|SKIP <process name>            one per process line, in batch order\n"
    "#   TEST <number> then KEY=VALUE fields:\n"
    "#     DUT=<display name> IDCODE=0x<JTAG ID code> MASK=0x<compared ID bits>\n"
    "#     SCHEME=<key> MSEL=0x<MSEL pins>           configuration scheme\n"
    "#     VCCPGM_MV=<millivolts>                     configuration supply\n"
    "#     MEMORY=<key> SLOT=<bench memory slot>      memory storage\n"
    "#     CLOCK=<key> CLOCK_SOURCE=<bench source>    configuration clock\n"
    "#     IMAGE=POF|JIC                              flash-loader image or serial configuration image\n"
    "#     COMMAND=<the command line>\n"
    "#   END\n";

struct BATCH {
    std::vector<std::string> commands;
    std::vector<PGMD_CM_PROCESS> processes;
};

BATCH read_batch(unsigned count, const std::string* lines)
{
    BATCH batch;
    for (unsigned i = 0; i < count; ++i) {
        PGMD_CM_PROCESS process;
        if (pgmd_cm_is_command(lines[i]))
            batch.commands.push_back(lines[i]);
        else if (pgmd_cm_parse_process(lines[i], &process))
            batch.processes.push_back(process);
    }
    return batch;
}

std::string work_directory()
{
    return gen_get_setting("kiopru/work_dir", QDir::temp().filePath("kiopru").toStdString());
}

std::string hex(uint32_t value, int digits)
{
    std::ostringstream out;
    out << "0x" << std::uppercase << std::hex;
    out.width(digits);
    out.fill('0');
    out << value;
    return out.str();
}

std::string test_record(unsigned number, const PGMD_CM_TEST_CASE& test, const std::string& line)
{
    std::ostringstream out;
    out << "TEST\t" << number << "\tDUT=" << test.dut->name << "\tIDCODE=" << hex(test.dut->idcode, 8)
        << "\tMASK=" << hex(test.dut->mask, 8) << "\tSCHEME=" << test.scheme->key << "\tMSEL=" << hex(test.scheme->msel, 2)
        << "\tVCCPGM_MV=" << test.vccpgm->code << "\tMEMORY=" << test.memory->key << "\tSLOT=" << test.memory->code
        << "\tCLOCK=" << test.clock->key << "\tCLOCK_SOURCE=" << test.clock->code
        << "\tIMAGE=" << (test.scheme->active ? "JIC" : "POF") << "\tCOMMAND=" << line << "\n";
    return out.str();
}

// Whole or not at all: a failed write keeps the previous raw file and is told to the user.
bool write_raw_file(const std::string& path, const std::string& text)
{
    QSaveFile file(QString::fromLocal8Bit(path.c_str()));
    const qint64 size = qint64(text.size());
    // commit() misses a failure of its own last flush (a disk that fills up): flush first.
    if (file.open(QIODevice::WriteOnly) && file.write(text.data(), size) == size && file.flush() && file.commit())
        return true;
    auto* error = new MSG_E("Can't write the raw test file %1!s!/EPGMD_CM_RAW_FILE");
    error->fill_args(path + " (" + file.errorString().toLocal8Bit().toStdString() + ")");
    msg_post(error);
    return false;
}

} // namespace

int PGMD_CM_MANAGER::generate_raw_file(unsigned count, std::string* lines)
{
    const BATCH batch = read_batch(count, lines);
    std::ostringstream body;
    body << RAW_FILE_HEADER << "KIOPRU_RAW\t1\n"
         << "BATCH\t" << batch.commands.size() << "\t" << batch.processes.size() << "\n";
    for (const PGMD_CM_PROCESS& process : batch.processes)
        body << "PROCESS\t" << (process.run ? "RUN" : "SKIP") << "\t" << process.name << "\n";
    for (size_t i = 0; i < batch.commands.size(); ++i) {
        PGMD_CM_TEST_CASE test;
        std::string error;
        if (!pgmd_cm_parse_command(batch.commands[i], &test, &error))
            return 2;
        body << test_record(unsigned(i + 1), test, batch.commands[i]);
    }
    body << "END\n";

    const QString directory = QString::fromStdString(work_directory());
    QDir().mkpath(directory); // when it cannot be made, the write says why
    const std::string path = QDir(directory).filePath(RAW_FILE_NAME).toStdString();
    if (!write_raw_file(path, body.str()))
        return 1;
    m_raw_file_path = path;
    return 0;
}

namespace {

// Locks both cables and finds the bench controller; the reason when the bench cannot run tests.
std::string start_bench(PGMD_CM_ENGINE& engine, unsigned* controller)
{
    const std::string bench = engine.get_hardware_name(false);
    const std::string dut = engine.get_hardware_name(true);
    if (bench.empty())
        return "Test-bench JTAG hardware is not set";
    if (dut.empty())
        return "DUT JTAG hardware is not set";
    if (!engine.startup_hardware(false, false))
        return "Test-bench JTAG hardware " + bench + " cannot be started: cable refused or JTAG chain broken";
    if (!engine.startup_hardware(true, false))
        return "DUT JTAG hardware " + dut + " cannot be started: cable refused or JTAG chain broken";
    if (!PGMD_CM_CONTROLLER::locate(engine, controller))
        return "No configuration test hardware on the test-bench chain of " + bench;
    return std::string();
}

} // namespace

std::vector<std::string> PGMD_CM_MANAGER::execute_test(unsigned count, std::string* lines, bool skip_flash)
{
    const BATCH batch = read_batch(count, lines);
    std::vector<std::string> results;
    if (batch.commands.empty())
        return results;
    std::set<std::string> skipped;
    for (const PGMD_CM_PROCESS& process : batch.processes)
        if (!process.run)
            skipped.insert(process.name);

    unsigned controller = 0;
    const std::string problem = start_bench(m_engine, &controller);
    PGMD_CM_TEST_RUN run(m_engine, controller, skipped, skip_flash);
    for (size_t i = 0; i < batch.commands.size(); ++i) {
        const unsigned number = unsigned(i + 1);
        const std::vector<std::string> lines_of_test =
            problem.empty() ? run.run(number, batch.commands[i]) : pgmd_cm_failed_test(number, batch.commands[i], problem);
        results.insert(results.end(), lines_of_test.begin(), lines_of_test.end());
    }
    if (problem.empty())
        PGMD_CM_CONTROLLER(m_engine, controller).write(BENCH_PROTOCOL::REG_CONTROL, 0); // leave the DUT unpowered
    m_engine.unlock_hardware(false);
    m_engine.unlock_hardware(true);
    return results;
}
