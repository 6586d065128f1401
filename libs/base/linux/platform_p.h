// Linux layer internals (not API): reading /proc and /sys pseudo-files, errno messages.
#pragma once

#include <QByteArray>
#include <QString>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vanta::linuxio {

// The whole content of a small file. Pseudo-files report a size of 0, so this reads until the
// end instead of trusting fstat. Empty when the file cannot be read.
inline QByteArray readSmallFile(const QByteArray& path) {
    QByteArray text;
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return text;
    char chunk[4096];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0)
            text.append(chunk, int(n));
        else if (n == 0 || errno != EINTR)
            break;
    }
    ::close(fd);
    return text;
}

// The first line of a small file, without surrounding white space.
inline QByteArray readFirstLine(const QByteArray& path) {
    const QByteArray text = readSmallFile(path);
    const int end = text.indexOf('\n');
    return (end < 0 ? text : text.left(end)).trimmed();
}

// The text after `key` on the first line that starts with it and continues with ':' or
// white space, as in /proc/meminfo ("MemTotal:   1024 kB"), /proc/vmstat ("pswpout 3") and
// /proc/cpuinfo ("cpu MHz\t\t: 2600.000"). Null when no line matches.
inline QByteArray keyedValue(const QByteArray& text, const QByteArray& key) {
    int from = 0;
    while (from < text.size()) {
        int end = text.indexOf('\n', from);
        if (end < 0)
            end = text.size();
        const QByteArray line = text.mid(from, end - from);
        if (line.startsWith(key) && line.size() > key.size()) {
            const char next = line.at(key.size());
            if (next == ':' || next == ' ' || next == '\t') {
                QByteArray value = line.mid(key.size()).trimmed();
                if (value.startsWith(':'))
                    value = value.mid(1).trimmed();
                return value;
            }
        }
        from = end + 1;
    }
    return QByteArray();
}

// The leading integer of keyedValue (units such as "kB" after it are ignored); -1 when absent.
inline long long keyedNumber(const QByteArray& text, const QByteArray& key) {
    const QByteArray value = keyedValue(text, key);
    int digits = 0;
    while (digits < value.size() && value.at(digits) >= '0' && value.at(digits) <= '9')
        ++digits;
    if (digits == 0)
        return -1;
    bool ok = false;
    const long long n = value.left(digits).toLongLong(&ok);
    return ok ? n : -1;
}

// "what: <description of err>", the form every Linux-layer diagnostic takes. strerrordesc_np
// is used because, unlike strerror, it is safe from any thread.
inline QString errnoMessage(const QString& what, int err) {
    const char* description = strerrordesc_np(err);
    return what + QStringLiteral(": ") +
           (description ? QString::fromLocal8Bit(description)
                        : QStringLiteral("Unknown error %1").arg(err));
}

}  // namespace vanta::linuxio
