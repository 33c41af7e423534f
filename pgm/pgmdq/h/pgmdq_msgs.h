// Shared by every unit of the plug-in, and included first by each: the module's memory
// initializer, the message-log line types with their prefixes and icons, and the plug-in's
// registered host messages and debug messages.
#pragma once

#include "msg.h"

static MEM_INITIALIZER pgmdq_mem_initializer("PGMDQ");

#include <iostream>

#include <QIcon>
#include <QString>

#include <string>

#include "pgmdq_internal_error.h"

enum PGMDQ_MSG_TYPE {
    PGMDQ_MSG_TYPE_INFO = 0,
    PGMDQ_MSG_TYPE_WARNING = 1,
    PGMDQ_MSG_TYPE_ERROR = 2,
    PGMDQ_MSG_TYPE_POF_ERROR = 3,
};

// An icon whose image is read on first use: QIcon's file constructor reads the image at once,
// and these tables are built before the unit that registers the resource bundle may have run.
QIcon pgmdq_lazy_resource_icon(const char* resource_path);

static const QString PGMDQ_MSG_TYPE_STRING[4] = {
    QStringLiteral("Info: "),
    QStringLiteral("Warning: "),
    QStringLiteral("Error: "),
    QStringLiteral("POF Error: "),
};

// The POF error type shares the error icon; only its prefix differs.
static const QIcon PGMDQ_MSG_TYPE_ICON[4] = {
    pgmdq_lazy_resource_icon(":icons/pgmdq_msg_info_icon.png"),
    pgmdq_lazy_resource_icon(":icons/pgmdq_msg_warning_icon.png"),
    pgmdq_lazy_resource_icon(":icons/pgmdq_msg_error_icon.png"),
    pgmdq_lazy_resource_icon(":icons/pgmdq_msg_error_icon.png"),
};

class MSG_PGMDQ {
public:
    struct E {
        static MSG_E* FILE_IO_ERROR(const std::string& path);
        static MSG_E* PGMDQ_COMMON_ERROR_MSG(const std::string& text);
    };
    struct I {
        static MSG_I* PGMDQ_COMMON_MSG(const std::string& text);
    };

    static void DEBUG_MSG(MSG_D_LEVEL level, const char* format, ...);
    static void DEBUG_MSG(const char* format, ...);
};

void msg_vdebug_impl(MSG_D_LEVEL level, const char* format, ...);

int qInitResources_pgmdq();
int qCleanupResources_pgmdq();
