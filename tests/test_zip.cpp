// Tests of zip archives written and read through the UTF-8 file callbacks.
#include <vanta/file.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <map>

namespace {

using Entries = std::map<QByteArray, QByteArray>;  // UTF-8 name -> content

QString freshDir(const QString& name) {
    const QString dir = vantatest::scratchDir() + QStringLiteral("/zip/") + name;
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    return dir;
}

// Writes entries into a new archive at path; false on the first failure.
bool writeArchive(const QByteArray& path, const Entries& entries) {
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
                                  Z_DEFAULT_STRATEGY, nullptr, 0, 0, 1 << 11) == ZIP_OK &&
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
