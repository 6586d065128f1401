// libFuzzer target: path and address clean-up on arbitrary UTF-8 text.
#include <vanta/file.h>

#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    QString path = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const QString before = path;
    vanta::file::cleanupPathname(path);
    // Cleaning a clean local path changes nothing more; a URL keeps everything before the
    // cleaned part, so its scheme survives.
    const int k = before.indexOf(QLatin1String("://"));
    if (k <= 0) {
        QString again = path;
        vanta::file::cleanupPathname(again);
        if (again != path && again.indexOf(QLatin1String("://")) <= 0)
            std::abort();
    } else if (!path.startsWith(before.left(k + 3))) {
        std::abort();
    }
    return 0;
}
