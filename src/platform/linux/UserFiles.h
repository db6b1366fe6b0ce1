#pragma once
// Writing the program's own files (the settings file, the autostart entry) without ever clobbering
// something else: every write goes to a temporary file in the same folder, is synced and renamed
// over the file. A symbolic link is written through only when its final target is a regular file
// inside the user's home; anything else at the path that is not a regular file is never replaced,
// and no file is ever created through a dangling link. Refusals come back as a message the user
// can read.

#include <QByteArray>
#include <QString>
#include <optional>

namespace lorvane::userfiles {

enum class Kind {
    missing,      // nothing at the path (a dangling link counts as "notRegular")
    regular,      // a regular file, or a link to one
    notRegular,   // a folder, a device, a FIFO, a socket, a dangling or looping link
};

// What is at `path`, following links, without opening it (so a FIFO or device never blocks).
Kind kindAt(const QString& path);

// Where a write to `path` lands: `path` itself, or the final target of a link that may be written
// through. Nothing, with `refusal` set, when the write must not happen.
struct WriteTarget {
    QString path;
    QString refusal;
    bool allowed() const { return refusal.isEmpty(); }
};
WriteTarget resolveForWriting(const QString& path, const QString& home);

// Writes `contents` to `path` atomically; the folder is created when missing. Answers nothing on
// success, or the reason it did not happen. `home` is the user's home folder (links may point only
// inside it).
std::optional<QString> writeAtomically(const QString& path, const QByteArray& contents, const QString& home);
std::optional<QString> writeAtomically(const QString& path, const QByteArray& contents);

// Removes the file at `path`: a link itself is removed, never its target; a folder or other special
// file is left alone and reported. Nothing at the path is success.
std::optional<QString> remove(const QString& path);

// The file's bytes when it is a regular file (or a link to one) no larger than `maxBytes`; nothing
// otherwise. Never opens anything that could block.
std::optional<QByteArray> readRegularFile(const QString& path, qint64 maxBytes = 1 << 20);

}  // namespace lorvane::userfiles
