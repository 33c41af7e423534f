#include "pgmdq_miscellaneous_files.h"

#include "pgmdq_msgs.h"

#include <QSaveFile>

bool pgmdq_save_file(const std::string& path, const QByteArray& data)
{
    QSaveFile file(pgmdq_from_local8(path));
    // commit() misses a failure of its own last flush (a disk that fills up): flush first.
    const bool saved =
        file.open(QIODevice::WriteOnly) && file.write(data) == data.size() && file.flush() && file.commit();
    if (!saved)
        msg_post(MSG_PGMDQ::E::FILE_IO_ERROR(path + " (" + pgmdq_local8(file.errorString()) + ")"));
    return saved;
}

std::string pgmdq_shell_quote(const std::string& word)
{
    std::string quoted = "'";
    for (char c : word)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string pgmdq_local8(const QString& text)
{
    return text.toLocal8Bit().toStdString();
}

QString pgmdq_from_local8(const std::string& text)
{
    return QString::fromLocal8Bit(text.data(), int(text.size()));
}
