// Shared by the Kiopru and waveform tests: the plug-in's internal errors caught by their text
// (as QStrings), and folders that cannot take a whole file.
#pragma once

#include "internal_error_text.h"

#include <QFile>
#include <QtTest>

#include <csignal>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

template <typename ACTION> QString internal_error_in(const char* source, ACTION&& action)
{
    return QString::fromStdString(internal_error_text(source, std::forward<ACTION>(action)));
}

// Where a file cannot be written whole: a read-only folder, a folder that is not there, a disk
// that fills up.
enum class UNWRITABLE { READ_ONLY_FOLDER, MISSING_FOLDER, FULL_DISK };
Q_DECLARE_METATYPE(UNWRITABLE)

// Root writes into read-only folders all the same; the calling thread lays that power down (and
// takes it up again) through its effective capabilities.
inline void permission_override(bool on)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    QCOMPARE(syscall(SYS_capget, &header, data), 0L);
    const __u32 dac_override = 1u << CAP_DAC_OVERRIDE;
    data[0].effective = on ? data[0].effective | (data[0].permitted & dac_override) : data[0].effective & ~dac_override;
    QCOMPARE(syscall(SYS_capset, &header, data), 0L);
}

// Runs `action` while `folder` cannot take a complete file: it is made read-only, or the file
// size limit (SIGXFSZ ignored, so that the write fails instead of the process) stops writes past
// a few bytes; a missing folder needs nothing. Everything is restored afterwards.
template <typename ACTION> void while_unwritable(UNWRITABLE place, const QString& folder, ACTION&& action)
{
    const QFile::Permissions permissions = QFile::permissions(folder);
    rlimit file_size{};
    getrlimit(RLIMIT_FSIZE, &file_size);
    void (*on_file_size)(int) = std::signal(SIGXFSZ, SIG_IGN);
    if (place == UNWRITABLE::READ_ONLY_FOLDER) {
        QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
        permission_override(false);
    } else if (place == UNWRITABLE::FULL_DISK) {
        const rlimit small{16, file_size.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    std::forward<ACTION>(action)();
    setrlimit(RLIMIT_FSIZE, &file_size);
    std::signal(SIGXFSZ, on_file_size);
    permission_override(true);
    if (place == UNWRITABLE::READ_ONLY_FOLDER)
        QFile::setPermissions(folder, permissions);
}
