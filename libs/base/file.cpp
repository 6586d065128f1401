// vanta::file helpers, path clean-up, standard folders, and zip access through C streams.
#include <vanta/file.h>
#include <vanta/system.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStandardPaths>

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vanta {

namespace {

// The folder name the application keeps its own files under.
constexpr char kProductFolder[] = "/Orvane Vanta";

// Status codes of makeAbsDirPath: application subsystem, severity error, codes 1 and 8.
constexpr unsigned int kStatusEmptyPath = 0xC0000001u;
constexpr unsigned int kStatusIoFailed = 0xC0000008u;

// A per-user folder + the product folder, created with every missing parent (a fresh account
// has no ~/.local/share or ~/.cache yet). A failed creation is not reported: callers find out
// when they write.
QString productFolderIn(QStandardPaths::StandardLocation where) {
    const QString path = QStandardPaths::writableLocation(where) + QLatin1String(kProductFolder);
    QDir().mkpath(path);
    return path;
}

}  // namespace

QString System::installPath;

void System::setInstallPath(const QString& p) {
    installPath = p;
    if (!installPath.endsWith(QLatin1Char('/')))
        installPath += QLatin1Char('/');
}

QString System::getInstallPath() { return installPath; }

QString System::getAppDirectory() {
    return productFolderIn(QStandardPaths::GenericDataLocation);
}

QString System::getCacheDirectory() {
    return productFolderIn(QStandardPaths::GenericCacheLocation);
}

QString System::getMyDocumentsDirectory() {
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
}

QString System::getTempDirectory() {
    // TMPDIR counts only when it names a folder we can create files in, by an absolute path:
    // a relative one would follow the current directory, and a missing one would make every
    // temporary name unusable. Otherwise /tmp, as the C library and Python fall back to.
    const QString tmpdir = QDir::cleanPath(QFile::decodeName(qgetenv("TMPDIR")));
    const QByteArray native = QFile::encodeName(tmpdir);
    const bool usable = tmpdir.startsWith(QLatin1Char('/')) && tmpdir != QLatin1String("/") &&
                        QFileInfo(tmpdir).isDir() && ::access(native.constData(), W_OK | X_OK) == 0;
    return (usable ? tmpdir : QStringLiteral("/tmp")) + QLatin1Char('/');
}

unsigned int System::makeAbsDirPath(const QString& dir) {
    if (dir.isEmpty())
        return kStatusEmptyPath;
    const QStringList parts =
        QDir::cleanPath(dir).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    // Counted from the root even for a relative dir: callers pass absolute paths, and a relative
    // one must never land in whatever the current directory happens to be.
    QString made = QStringLiteral("/");
    for (const QString& part : parts) {
        made += part + QLatin1Char('/');
        if (!QFileInfo(made).isDir() && !QDir().mkdir(made))
            return kStatusIoFailed;
    }
    return 0;
}

QString System::makeTempFilePath(const QString& extension, const QString& prefix) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    const QString stem = getTempDirectory() + QString::fromLatin1(prefix.toLatin1());
    const QString suffix = extension.isEmpty() ? QString() : QLatin1Char('.') + extension;
    for (;;) {
        QString name = stem;
        for (int i = 0; i < 8; ++i)
            name += QLatin1Char(kAlphabet[QRandomGenerator::global()->bounded(62)]);
        name += suffix;
        if (!QFileInfo::exists(name))
            return name;
    }
}

namespace file {

bool exists(const QString& path) { return QFileInfo::exists(path); }

int getSize(const QString& path) { return int(QFileInfo(path).size()); }

void cleanupPathname(QString& path) {
    const int k = path.indexOf(QLatin1String("://"));
    if (k <= 0) {
        path.replace(QLatin1Char('\\'), QLatin1Char('/'));
        path = QDir::cleanPath(path);
        return;
    }
    if (!path.startsWith(QLatin1String("http"), Qt::CaseInsensitive))
        return;
    // Seven characters past "://" is four into an http host and three into an https one; the
    // host's first characters are deliberately never part of what gets cleaned.
    const int start = k + 7;
    if (start >= path.size())
        return;
    const int query = path.indexOf(QLatin1Char('?'), start);
    const QString segment = query == -1 ? path.mid(start) : path.mid(start, query - start);
    const QString cleaned = QDir::cleanPath(segment);
    if (cleaned != segment)
        path = path.left(start) + cleaned + (query == -1 ? QString() : path.mid(query));
}

void* readFile(const QString& path, int& size) {
    size = 0;
    // A directory opens read-only on Linux but has no content to read.
    if (QFileInfo(path).isDir())
        return nullptr;
    const int fd = System::open(path, O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    size = System::getSize(fd);
    char* buffer = size >= 0 ? static_cast<char*>(std::malloc(size_t(size))) : nullptr;
    if (buffer) {
        // Loop so a short read (signals, pipes) does not hand out a partly filled buffer; a file
        // that shrank meanwhile leaves zeros rather than stale heap bytes.
        int done = 0;
        while (done < size) {
            const int n = System::read(fd, buffer + done, static_cast<unsigned long>(size - done));
            if (n <= 0)
                break;
            done += n;
        }
        std::memset(buffer + done, 0, size_t(size - done));
    }
    System::close(fd);
    return buffer;
}

QString getCompatName(const QString& path, bool create) {
    if (create) {
        QFile f(path);
        if (f.open(QIODevice::WriteOnly | QIODevice::Append))
            f.close();
    }
    return path;
}

}  // namespace file

// ---- zip access ----

void* fopen_file_func(void*, const char* path, int mode) {
    const char* how = nullptr;
    if ((mode & ZLIB_FILEFUNC_MODE_READWRITEFILTER) == ZLIB_FILEFUNC_MODE_READ)
        how = "rb";
    else if (mode & ZLIB_FILEFUNC_MODE_EXISTING)
        how = "r+b";
    else if (mode & ZLIB_FILEFUNC_MODE_CREATE)
        how = "wb";
    if (!path || !how)
        return nullptr;
    return std::fopen(path, how);
}

unsigned long fread_file_func(void*, void* stream, void* buf, unsigned long n) {
    return std::fread(buf, 1, n, static_cast<FILE*>(stream));
}

unsigned long fwrite_file_func(void*, void* stream, const void* buf, unsigned long n) {
    return std::fwrite(buf, 1, n, static_cast<FILE*>(stream));
}

long ftell_file_func(void*, void* stream) { return std::ftell(static_cast<FILE*>(stream)); }

long fseek_file_func(void*, void* stream, unsigned long offset, int origin) {
    int whence;
    switch (origin) {
    case ZLIB_FILEFUNC_SEEK_SET: whence = SEEK_SET; break;
    case ZLIB_FILEFUNC_SEEK_CUR: whence = SEEK_CUR; break;
    case ZLIB_FILEFUNC_SEEK_END: whence = SEEK_END; break;
    default: return -1;
    }
    // Success is reported whatever fseek said; a bad position shows up as a short read next.
    std::fseek(static_cast<FILE*>(stream), long(offset), whence);
    return 0;
}

int fclose_file_func(void*, void* stream) { return std::fclose(static_cast<FILE*>(stream)); }

int ferror_file_func(void*, void* stream) { return std::ferror(static_cast<FILE*>(stream)); }

void populateFilefuncDef_UTF8(zlib_filefunc_def_s* def) {
    if (!def)
        return;
    def->zopen_file = fopen_file_func;
    def->zread_file = fread_file_func;
    def->zwrite_file = fwrite_file_func;
    def->ztell_file = ftell_file_func;
    def->zseek_file = fseek_file_func;
    def->zclose_file = fclose_file_func;
    def->zerror_file = ferror_file_func;
    def->opaque = nullptr;
}

void* unzOpen_UTF8(const char* path) {
    zlib_filefunc_def table;
    populateFilefuncDef_UTF8(&table);
    return unzOpen2(path, &table);
}

void* zipOpen_UTF8(const char* path, int append) {
    zlib_filefunc_def table;
    populateFilefuncDef_UTF8(&table);
    return zipOpen2(path, append, nullptr, &table);
}

}  // namespace vanta
