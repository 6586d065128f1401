/// \file
/// Packaged resources: files shipped in the installed resource folder, found by type and name or
/// by numeric id, some once per language in `<locale>.lproj` folders.
#pragma once

#include <vanta/export.h>
#include <QPixmap>
#include <QString>
#include <QStringList>

namespace vanta {

/// One row of resIDNameMap: a numeric resource id and the file's base name (no extension).
struct VANTA_EXPORT ResIDName {
    int id;  ///< The resource id.
    const char* name;  ///< The file's base name, without extension.
};

/// The fixed id table, searched from the first row. Two ids (252 and 521) name the same file.
VANTA_EXPORT extern const ResIDName resIDNameMap[];
VANTA_EXPORT extern const int resIDNameMapSize;  ///< Number of rows in resIDNameMap.

/// The style switch the application sets and reads through BinRes; false at load.
VANTA_EXPORT extern bool sUseVantaStyle;

/// The name of the first row with this id, or null. The text is static.
VANTA_EXPORT const char* FindResName(int id);

/// The installed resource folder: the install path (System::getInstallPath, or the running
/// executable's folder while none is set) + "../share/vanta/Resources", cleaned, without a
/// trailing "/".
VANTA_EXPORT QString GetResourceFolder();
/// The path of name + "." + lower-case type in the resource folder when that file exists,
/// otherwise empty. A null or empty name gives empty.
VANTA_EXPORT QString GetInstalledResourcePath(const QString& type, const QString& name);
/// GetInstalledResourcePath(type, FindResName(id)); empty for an unknown id.
VANTA_EXPORT QString MakeBinResourcePath(int id, const QString& type);

/// Static operations on packaged resources. type is the file extension (such as "png") and
/// always comes first. Nothing here reports errors: a missing resource gives an empty path, a
/// null buffer with size 0, or a null pixmap.
class VANTA_EXPORT BinRes {
public:
    /// GetInstalledResourcePath(type, name).
    static QString GetResourcePath(const QString& type, const QString& name);
    /// The best localized copy of name.type (both lower-cased) in the resource folder for the
    /// user's preferred locales, region first; empty when there is none. Reads the user settings.
    static QString GetResourcePathWithRegionEmphasis(const QString& type, const QString& name);
    /// Looks for name.type in dir itself first, then for each locale L in order in
    /// dir/L.folderSuffix and, when L has a region, in `dir/<language of L>.folderSuffix`.
    /// Returns the first path that exists, or empty.
    static QString SearchLocaleDirsForResource(const QString& type, const QString& name,
                                               const QString& dir, const QString& folderSuffix,
                                               const QStringList& locales);

    /// The whole resource in a buffer from malloc, which the caller frees with free; size
    /// receives the byte count. Null with size 0 when the resource is missing. Blocks on the read.
    static void* ExtractBinResource(const QString& type, int id, int& size);
    /// As above, for the resource named name.
    static void* ExtractBinResource(const QString& type, const QString& name, int& size);
    /// The resource decoded as an image (format detected from the bytes); null when it is
    /// missing, empty or not an image. Needs a QGuiApplication, like every QPixmap; with a console
    /// application object it returns a null pixmap. The bytes read are kept, not freed, until the
    /// library unloads (see retainedBufferCount).
    static QPixmap ExtractPixmap(const QString& type, int id);
    /// As above, for the resource named name.
    static QPixmap ExtractPixmap(const QString& type, const QString& name);
    /// The resource's own path (resources are already files); destination is ignored.
    static QString ExtractToDisk(const QString& type, int id, QString destination);

    static void setUseVantaStyle(bool use);  ///< Sets the style switch.
    static bool useVantaStyle();  ///< The style switch; false at load.
    /// Nothing to release: resources are plain files.
    static void cleanup();

    /// Number of buffers ExtractPixmap has decoded from and kept; for tests.
    static int retainedBufferCount();
};

}  // namespace vanta
