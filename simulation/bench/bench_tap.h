// The TAP controller state machine every JTAG device runs (sixteen states, advanced by TMS on the
// rising edge of TCK). The bench's devices, its trace model and the engine that walks them share
// this one table.
#pragma once

enum class BENCH_TAP_STATE {
    TEST_LOGIC_RESET,
    RUN_TEST_IDLE,
    SELECT_DR_SCAN,
    CAPTURE_DR,
    SHIFT_DR,
    EXIT1_DR,
    PAUSE_DR,
    EXIT2_DR,
    UPDATE_DR,
    SELECT_IR_SCAN,
    CAPTURE_IR,
    SHIFT_IR,
    EXIT1_IR,
    PAUSE_IR,
    EXIT2_IR,
    UPDATE_IR,
};

constexpr unsigned BENCH_TAP_STATE_COUNT = 16;

BENCH_TAP_STATE bench_tap_next(BENCH_TAP_STATE state, bool tms);
const char* bench_tap_state_name(BENCH_TAP_STATE state);
