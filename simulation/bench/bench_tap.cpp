#include "bench_tap.h"

namespace {

using S = BENCH_TAP_STATE;

struct TRANSITION {
    S state;
    S on_tms_low;
    S on_tms_high;
    const char* name;
};

// Rows in enumerator order, so a state's row is its value.
const TRANSITION TRANSITIONS[BENCH_TAP_STATE_COUNT] = {
    {S::TEST_LOGIC_RESET, S::RUN_TEST_IDLE, S::TEST_LOGIC_RESET, "Test-Logic-Reset"},
    {S::RUN_TEST_IDLE, S::RUN_TEST_IDLE, S::SELECT_DR_SCAN, "Run-Test/Idle"},
    {S::SELECT_DR_SCAN, S::CAPTURE_DR, S::SELECT_IR_SCAN, "Select-DR-Scan"},
    {S::CAPTURE_DR, S::SHIFT_DR, S::EXIT1_DR, "Capture-DR"},
    {S::SHIFT_DR, S::SHIFT_DR, S::EXIT1_DR, "Shift-DR"},
    {S::EXIT1_DR, S::PAUSE_DR, S::UPDATE_DR, "Exit1-DR"},
    {S::PAUSE_DR, S::PAUSE_DR, S::EXIT2_DR, "Pause-DR"},
    {S::EXIT2_DR, S::SHIFT_DR, S::UPDATE_DR, "Exit2-DR"},
    {S::UPDATE_DR, S::RUN_TEST_IDLE, S::SELECT_DR_SCAN, "Update-DR"},
    {S::SELECT_IR_SCAN, S::CAPTURE_IR, S::TEST_LOGIC_RESET, "Select-IR-Scan"},
    {S::CAPTURE_IR, S::SHIFT_IR, S::EXIT1_IR, "Capture-IR"},
    {S::SHIFT_IR, S::SHIFT_IR, S::EXIT1_IR, "Shift-IR"},
    {S::EXIT1_IR, S::PAUSE_IR, S::UPDATE_IR, "Exit1-IR"},
    {S::PAUSE_IR, S::PAUSE_IR, S::EXIT2_IR, "Pause-IR"},
    {S::EXIT2_IR, S::SHIFT_IR, S::UPDATE_IR, "Exit2-IR"},
    {S::UPDATE_IR, S::RUN_TEST_IDLE, S::SELECT_DR_SCAN, "Update-IR"},
};

const TRANSITION& row(S state)
{
    return TRANSITIONS[static_cast<unsigned>(state)];
}

} // namespace

BENCH_TAP_STATE bench_tap_next(BENCH_TAP_STATE state, bool tms)
{
    return tms ? row(state).on_tms_high : row(state).on_tms_low;
}

const char* bench_tap_state_name(BENCH_TAP_STATE state)
{
    return row(state).name;
}
