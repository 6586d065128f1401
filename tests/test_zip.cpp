// Tests of zip archives written and read through the UTF-8 file callbacks.
#include <vanta/file.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <algorithm>
#include <map>

namespace {

using Entries = std::map<QByteArray, QByteArray>;  // UTF-8 name -> content

QString freshDir(const QString& name) {
    const QString dir = vantatest::scratchDir() + QStringLiteral("/zip/") + name;
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    return dir;
}

// Writes entries into a new archive at path; false on the first failure. Each entry is marked as
// made on Unix by zip 2.0 with a UTF-8 name (general purpose bit 11): Info-ZIP's unzip reads the
// names of an archive "made by" MS-DOS (0) in the DOS code page whatever the flag says.
bool writeArchive(const QByteArray& path, const Entries& entries, int madeBy = (3 << 8) | 20) {
    zipFile zip = vanta::zipOpen_UTF8(path.constData(), APPEND_STATUS_CREATE);
    if (!zip)
        return false;
    bool ok = true;
    for (const auto& [name, content] : entries) {
        zip_fileinfo info = {};
        // Bit 11 of the general purpose flags marks the name as UTF-8.
        ok = ok &&
             zipOpenNewFileInZip4(zip, name.constData(), &info, nullptr, 0, nullptr, 0, nullptr,
                                  Z_DEFLATED, Z_DEFAULT_COMPRESSION, 0, -MAX_WBITS, DEF_MEM_LEVEL,
                                  Z_DEFAULT_STRATEGY, nullptr, 0, uLong(madeBy),
                                  1 << 11) == ZIP_OK &&
             zipWriteInFileInZip(zip, content.constData(), unsigned(content.size())) == ZIP_OK &&
             zipCloseFileInZip(zip) == ZIP_OK;
    }
    return zipClose(zip, nullptr) == ZIP_OK && ok;
}

// Reads every entry of the archive at path; false when it cannot be opened or read.
bool readArchive(const QByteArray& path, Entries& entries) {
    unzFile unz = vanta::unzOpen_UTF8(path.constData());
    if (!unz)
        return false;
    bool ok = true;
    for (int more = unzGoToFirstFile(unz); ok && more == UNZ_OK; more = unzGoToNextFile(unz)) {
        char name[512];
        unz_file_info info;
        ok = unzGetCurrentFileInfo(unz, &info, name, sizeof name, nullptr, 0, nullptr, 0) ==
                 UNZ_OK &&
             unzOpenCurrentFile(unz) == UNZ_OK;
        if (!ok)
            break;
        QByteArray content(int(info.uncompressed_size), '\0');
        const int n = unzReadCurrentFile(unz, content.data(), unsigned(content.size()));
        ok = n == content.size() && unzCloseCurrentFile(unz) == UNZ_OK;
        entries[name] = content;
    }
    unzClose(unz);
    return ok;
}

}  // namespace

TEST(Zip, Utf8NamesRoundTripByteForByte) {
    QByteArray binary(70000, '\0');
    for (int i = 0; i < binary.size(); ++i)
        binary[i] = char((i * 31) ^ (i >> 8));
    const Entries written = {
        {QStringLiteral("caf\u00e9 cr\u00e8me.txt").toUtf8(), "accents"},
        {QStringLiteral("\u5730\u7403/\u8def\u5f84/\u6587\u4ef6.bin").toUtf8(), binary},
        {"nested/folder/plain.txt", QByteArray()},
    };
    // The archive's own path has non-ASCII characters too.
    const QString dir = freshDir(QStringLiteral("r\u00f6und \u65c5"));
    const QByteArray archive = (dir + QStringLiteral("/\u00e4rchive.zip")).toUtf8();
    ASSERT_TRUE(writeArchive(archive, written));
    ASSERT_TRUE(QFile::exists(QString::fromUtf8(archive)));
    Entries read;
    ASSERT_TRUE(readArchive(archive, read));
    EXPECT_EQ(read, written);
}

TEST(Zip, BadArchivesFailCleanly) {
    const QString dir = freshDir(QStringLiteral("bad"));
    // A good archive cut short, a file that is not a zip at all, an empty file, a missing one.
    const QByteArray good = (dir + "/good.zip").toUtf8();
    ASSERT_TRUE(writeArchive(good, {{"x", QByteArray(5000, 'x')}, {"y", "why"}}));
    QFile whole(QString::fromUtf8(good));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QByteArray bytes = whole.readAll();
    const std::pair<const char*, QByteArray> rows[] = {
        {"truncated.zip", bytes.left(bytes.size() / 2)},
        {"text.zip", "this is not a zip archive\n"},
        {"empty.zip", QByteArray()}};
    for (const auto& [name, content] : rows) {
        QFile f(dir + "/" + name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(content);
        f.close();
        EXPECT_EQ(vanta::unzOpen_UTF8((dir + "/" + name).toUtf8().constData()), nullptr) << name;
    }
    EXPECT_EQ(vanta::unzOpen_UTF8((dir + "/missing.zip").toUtf8().constData()), nullptr);
    EXPECT_EQ(vanta::unzOpen_UTF8(nullptr), nullptr);
    // A folder that does not exist cannot take a new archive.
    EXPECT_EQ(vanta::zipOpen_UTF8((dir + "/no/such/a.zip").toUtf8().constData(), 0), nullptr);
}

namespace {

// Runs program with arguments in dir under a UTF-8 locale; its standard output, or a null
// array when it could not be started or failed.
QByteArray run(const QString& program, const QStringList& arguments, const QString& dir) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("LC_ALL", "C.UTF-8");
    process.setProcessEnvironment(env);
    process.setWorkingDirectory(dir);
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return QByteArray();
    const QByteArray out = process.readAllStandardOutput();
    return out.isNull() ? QByteArray("") : out;
}

bool haveTool(const char* program) {
    return !QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty();
}

const Entries& interopEntries() {
    static const Entries entries = {
        {QStringLiteral("caf\u00e9 cr\u00e8me.txt").toUtf8(), "accents"},
        {QStringLiteral("\u5730\u7403/\u6587\u4ef6.bin").toUtf8(), QByteArray(3000, '\x7f')},
        {"plain.txt", "plain"},
    };
    return entries;
}

// Lists an archive with Python's zipfile: one "name<TAB>content in hex" line per entry.
constexpr char kPythonLister[] =
    "import sys, zipfile\n"
    "z = zipfile.ZipFile(sys.argv[1])\n"
    "for i in z.infolist():\n"
    "    if not i.is_dir(): print(i.filename + '\\t' + z.read(i).hex())\n";

// Writes the entries into sys.argv[1] with Python's zipfile (UTF-8 names get flag bit 11).
constexpr char kPythonWriter[] =
    "import sys, zipfile\n"
    "z = zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED)\n"
    "for pair in sys.argv[2:]:\n"
    "    name, content = pair.split('=', 1)\n"
    "    z.writestr(name, bytes.fromhex(content))\n"
    "z.close()\n";

Entries withoutFolders(const Entries& entries) {
    Entries files;
    for (const auto& [name, content] : entries)
        if (!name.endsWith('/'))
            files[name] = content;
    return files;
}

}  // namespace

// Archives of this library list and extract with Info-ZIP's unzip and Python's zipfile under
// the names they were given.
TEST(ZipInterop, OtherToolsReadOurArchives) {
    const QString dir = freshDir(QStringLiteral("ours"));
    const QByteArray archive = (dir + "/ours.zip").toUtf8();
    ASSERT_TRUE(writeArchive(archive, interopEntries()));
    int tools = 0;
    if (haveTool("unzip")) {
        ++tools;
        const QByteArray names = run("unzip", {"-Z1", archive}, dir);
        QList<QByteArray> expected;
        for (const auto& entry : interopEntries())
            expected.append(entry.first);
        QList<QByteArray> listed = names.split('\n');
        listed.removeAll(QByteArray());
        std::sort(listed.begin(), listed.end());
        EXPECT_EQ(listed, expected) << names.constData();
        EXPECT_EQ(run("unzip", {"-tq", archive}, dir).isNull(), false);
        ASSERT_FALSE(run("unzip", {"-q", archive, "-d", "out"}, dir).isNull());
        for (const auto& [name, content] : interopEntries()) {
            QFile extracted(dir + "/out/" + QString::fromUtf8(name));
            EXPECT_TRUE(extracted.open(QIODevice::ReadOnly)) << name.constData();
            EXPECT_EQ(extracted.readAll(), content) << name.constData();
        }
    }
    if (haveTool("python3")) {
        ++tools;
        QByteArray expected;
        for (const auto& [name, content] : interopEntries())
            expected += name + '\t' + content.toHex() + '\n';
        EXPECT_EQ(run("python3", {"-c", kPythonLister, archive}, dir), expected);
        EXPECT_FALSE(run("python3", {"-m", "zipfile", "-t", archive}, dir).isNull());
    }
    if (tools == 0)
        GTEST_SKIP() << "neither unzip nor python3 is installed";
}

// Archives made by Info-ZIP's zip (UTF-8 names without the flag, folder entries) and by
// Python's zipfile (UTF-8 names with the flag) read back byte for byte.
TEST(ZipInterop, WeReadArchivesOfOtherTools) {
    const QString dir = freshDir(QStringLiteral("theirs"));
    for (const auto& [name, content] : interopEntries()) {
        const QString path = dir + "/tree/" + QString::fromUtf8(name);
        QDir().mkpath(QFileInfo(path).path());
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(content);
    }
    int tools = 0;
    if (haveTool("zip")) {
        ++tools;
        ASSERT_FALSE(run("zip", {"-qr", "../info.zip", "."}, dir + "/tree").isNull());
        Entries read;
        ASSERT_TRUE(readArchive((dir + "/info.zip").toUtf8(), read));
        EXPECT_EQ(withoutFolders(read), interopEntries());
        EXPECT_TRUE(read.count(QStringLiteral("\u5730\u7403/").toUtf8()));  // the folder entry
    }
    if (haveTool("python3")) {
        ++tools;
        QStringList arguments = {"-c", kPythonWriter, dir + "/python.zip"};
        for (const auto& [name, content] : interopEntries())
            arguments.append(QString::fromUtf8(name + '=' + content.toHex()));
        ASSERT_FALSE(run("python3", arguments, dir).isNull());
        Entries read;
        ASSERT_TRUE(readArchive((dir + "/python.zip").toUtf8(), read));
        EXPECT_EQ(read, interopEntries());
    }
    if (tools == 0)
        GTEST_SKIP() << "neither zip nor python3 is installed";
}
