// Helpers every panel uses where it meets files and the shell: saving a file whole or not at
// all, quoting a path for a shell command line, the local 8-bit encoding, and owned C file
// handles.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// Writes `data` to a new file in the folder of `path` and renames it over `path` only once it is
// complete, so a failure (read-only or missing folder, full disk) leaves the previous file whole.
// A failure is told to the user in one message naming the file and the reason, or, when `error`
// is given, left there for the caller to tell; the result says whether the file was saved.
bool pgmdq_save_file(const std::string& path, const QByteArray& data, std::string* error = nullptr);

// The same for a file made piece by piece: `produce` hands each piece to the sink it is given
// (false from the sink: the piece could not be written) and says whether the file is complete.
typedef std::function<bool(const char* data, std::size_t size)> PGMDQ_SAVE_SINK;
bool pgmdq_save_pieces(const std::string& path, const std::function<bool(const PGMDQ_SAVE_SINK&)>& produce,
                       std::string* error = nullptr);

// What "Save msg" saves: the lines, one a line, into the file chosen, with ".txt" as its
// extension; written as pgmdq_save_file writes.
bool pgmdq_save_lines(const QString& chosen_file, const std::vector<std::string>& lines);

// `word` as one shell word: single-quoted, an embedded quote closed, escaped and reopened.
// Every path of a shell command line goes through here, whatever characters its name holds.
std::string pgmdq_shell_quote(const std::string& word);

// Strings at the interfaces to the host libraries and the shell are in the local 8-bit
// encoding; Qt strings only live inside widgets.
std::string pgmdq_local8(const QString& text);
QString pgmdq_from_local8(const std::string& text);

struct PGMDQ_FILE_CLOSER {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
typedef std::unique_ptr<std::FILE, PGMDQ_FILE_CLOSER> PGMDQ_FILE;
