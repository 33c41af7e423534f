#pragma once

#include "tfcq.h"

// A dialog of the chain manager's engine; nothing creates it yet.
class PGMDQ_CM_ENGINE : public TFCQ_DIALOG {
    Q_OBJECT
public:
    using TFCQ_DIALOG::TFCQ_DIALOG;
};
