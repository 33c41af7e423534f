// The frame under a class name of its own, for test harnesses.
#pragma once

#include "pgmdq_frame_wnd.h"

class PGMDQ_TEST_FRAME_WND : public PGMDQ_FRAME_WND {
    Q_OBJECT
public:
    using PGMDQ_FRAME_WND::PGMDQ_FRAME_WND;
};
