#include "pgmdq_miscellaneous_files.h"

#include "pgmdq_msgs.h"

#include "fio.h"

#include <QSaveFile>

namespace {

// Writes on after a short write, so that the failing write says why (a full disk, a file too
// large).
bool write_all(QSaveFile& file, const char* data, std::size_t size)
{
    for (std::size_t written = 0; written < size;) {
        const qint64 count = file.write(data + written, qint64(size - written));
        if (count <= 0)
            return false;
        written += std::size_t(count);
    }
    return true;
}

} // namespace

bool pgmdq_save_file(const std::string& path, const QByteArray& data, std::string* error)
{
    return pgmdq_save_pieces(
        path, [&data](const PGMDQ_SAVE_SINK& sink) { return sink(data.constData(), std::size_t(data.size())); }, error);
}

bool pgmdq_save_pieces(const std::string& path, const std::function<bool(const PGMDQ_SAVE_SINK&)>& produce,
                       std::string* error)
{
    QSaveFile file(pgmdq_from_local8(path));
    // Unbuffered: a failed write shows at once, where a buffered one would only fail in commit's
    // flush, which renames the short file all the same.
    const bool saved = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
                       produce([&file](const char* data, std::size_t size) { return write_all(file, data, size); }) &&
                       file.commit();
    if (saved)
        return true;
    const std::string reason = pgmdq_local8(file.errorString());
    if (error)
        *error = reason;
    else
        msg_post(MSG_PGMDQ::E::FILE_IO_ERROR(path + " (" + reason + ")"));
    return false;
}

bool pgmdq_save_lines(const QString& chosen_file, const std::vector<std::string>& lines)
{
    FIO_PATH path(pgmdq_local8(chosen_file));
    path.extension(".txt");
    QByteArray text;
    for (const std::string& line : lines)
        text += QByteArray::fromStdString(line) + '\n';
    return pgmdq_save_file(path.fullpath(), text);
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
