#include "platform/linux/UserFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace lorvane::userfiles {

namespace {

QByteArray encoded(const QString& path) { return QFile::encodeName(path); }

QString errnoText(int error) { return QString::fromLocal8Bit(std::strerror(error)); }

// The canonical form of `path`, or nothing when some part of it does not exist.
std::optional<QString> realPath(const QString& path) {
    char buffer[PATH_MAX];
    if (!::realpath(encoded(path).constData(), buffer)) return std::nullopt;
    return QFile::decodeName(buffer);
}

bool isInside(const QString& path, const QString& folder) {
    QString prefix = folder;
    if (!prefix.endsWith(QLatin1Char('/'))) prefix += QLatin1Char('/');
    return path.startsWith(prefix);
}

bool writeAll(int fd, const QByteArray& bytes) {
    const char* data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += written;
        left -= written;
    }
    return true;
}

}  // namespace

Kind kindAt(const QString& path) {
    struct stat info {};
    if (::lstat(encoded(path).constData(), &info) != 0) return Kind::missing;
    if (S_ISLNK(info.st_mode) && ::stat(encoded(path).constData(), &info) != 0) return Kind::notRegular;
    return S_ISREG(info.st_mode) ? Kind::regular : Kind::notRegular;
}

WriteTarget resolveForWriting(const QString& path, const QString& home) {
    struct stat info {};
    if (::lstat(encoded(path).constData(), &info) != 0) {
        if (errno == ENOENT) return {path, {}};
        return {{}, QStringLiteral("“%1” cannot be examined: %2.").arg(path, errnoText(errno))};
    }
    if (!S_ISLNK(info.st_mode)) {
        if (S_ISREG(info.st_mode)) return {path, {}};
        return {{}, QStringLiteral("“%1” is not a regular file, so Lorvane does not replace it.").arg(path)};
    }
    const auto target = realPath(path);
    if (!target) {
        return {{}, QStringLiteral("“%1” is a link to something that does not exist, so Lorvane does not "
                                   "create a file through it.")
                        .arg(path)};
    }
    struct stat targetInfo {};
    if (::stat(encoded(*target).constData(), &targetInfo) != 0 || !S_ISREG(targetInfo.st_mode)) {
        return {{}, QStringLiteral("“%1” is a link to “%2”, which is not a regular file, so Lorvane does not "
                                   "write through it.")
                        .arg(path, *target)};
    }
    const QString realHome = realPath(home).value_or(home);
    if (!isInside(*target, realHome)) {
        return {{}, QStringLiteral("“%1” is a link to “%2”, outside your home folder, so Lorvane does not "
                                   "write through it.")
                        .arg(path, *target)};
    }
    return {*target, {}};
}

std::optional<QString> writeAtomically(const QString& path, const QByteArray& contents) {
    return writeAtomically(path, contents, QDir::homePath());
}

std::optional<QString> writeAtomically(const QString& path, const QByteArray& contents, const QString& home) {
    const QString folder = QFileInfo(path).absolutePath();
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder)) {
        return QStringLiteral("The folder “%1” could not be created.").arg(folder);
    }
    const WriteTarget target = resolveForWriting(path, home);
    if (!target.allowed()) return target.refusal;

    // The new contents go to a temporary file next to the target, so the rename is atomic.
    const QFileInfo targetInfo(target.path);
    QByteArray temporary =
        encoded(targetInfo.absolutePath() + QStringLiteral("/.") + targetInfo.fileName() + QStringLiteral(".XXXXXX"));
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        return QStringLiteral("“%1” could not be written: %2.").arg(target.path, errnoText(errno));
    }
    const auto fail = [&](int error) {
        ::close(fd);
        ::unlink(temporary.constData());
        return QStringLiteral("“%1” could not be written: %2.").arg(target.path, errnoText(error));
    };
    // An existing file keeps its permissions; a new one is private to the user.
    struct stat existing {};
    const mode_t mode = ::stat(encoded(target.path).constData(), &existing) == 0 ? (existing.st_mode & 07777) : 0600;
    if (::fchmod(fd, mode) != 0) return fail(errno);
    if (!writeAll(fd, contents)) return fail(errno);
    if (::fsync(fd) != 0) return fail(errno);
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        return QStringLiteral("“%1” could not be written: %2.").arg(target.path, errnoText(error));
    }
    if (::rename(temporary.constData(), encoded(target.path).constData()) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        return QStringLiteral("“%1” could not be written: %2.").arg(target.path, errnoText(error));
    }
    // The rename itself reaches the disk with the folder.
    const int dirFd = ::open(encoded(targetInfo.absolutePath()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return std::nullopt;
}

std::optional<QString> remove(const QString& path) {
    struct stat info {};
    if (::lstat(encoded(path).constData(), &info) != 0) return std::nullopt;
    if (!S_ISLNK(info.st_mode) && !S_ISREG(info.st_mode)) {
        return QStringLiteral("“%1” is not a regular file, so Lorvane does not remove it.").arg(path);
    }
    if (::unlink(encoded(path).constData()) != 0 && errno != ENOENT) {
        return QStringLiteral("“%1” could not be removed: %2.").arg(path, errnoText(errno));
    }
    return std::nullopt;
}

std::optional<QByteArray> readRegularFile(const QString& path, qint64 maxBytes) {
    // O_NONBLOCK: should the path turn into a FIFO between the check and the open, open() still returns.
    const int fd = ::open(encoded(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return std::nullopt;
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > maxBytes) {
        ::close(fd);
        return std::nullopt;
    }
    QByteArray bytes;
    char buffer[16384];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        bytes.append(buffer, got);
        if (bytes.size() > maxBytes) {
            ::close(fd);
            return std::nullopt;
        }
    }
    ::close(fd);
    return bytes;
}

}  // namespace lorvane::userfiles
