// vanta::GfxCardInfoLinux: graphics card facts from the kernel's DRM devices in sysfs.
#include <vanta/sysinfo.h>

#include <vanta/linux/platform_p.h>

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace vanta {

GfxCardInfoLinux* GfxCardInfoLinux::sSingleton = nullptr;

namespace {

const QString kUnimplemented = QStringLiteral("unimplemented");

// The DRM card folders (card0, card1, ...; not their connectors such as card0-HDMI-A-1) in
// numeric order, so card10 comes after card2.
QStringList cardFolders(const QString& drmDir) {
    static const QRegularExpression cardName(QStringLiteral("^card(\\d+)$"));
    QList<QPair<int, QString>> cards;
    const QStringList names = QDir(drmDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& name : names) {
        const QRegularExpressionMatch m = cardName.match(name);
        if (m.hasMatch())
            cards.append({m.captured(1).toInt(), drmDir + QLatin1Char('/') + name});
    }
    std::sort(cards.begin(), cards.end());
    QStringList folders;
    for (const auto& card : cards)
        folders << card.second;
    return folders;
}

QString readLine(const QString& path) {
    return QString::fromUtf8(linuxio::readFirstLine(QFile::encodeName(path)));
}

}  // namespace

GfxCardInfoLinux::GfxCardInfoLinux(const QString& sysfsRoot) {
    sSingleton = this;
    const QStringList cards = cardFolders(sysfsRoot + QStringLiteral("/class/drm"));
    QString chosen;
    for (const QString& card : cards) {
        bool ok = false;
        const qulonglong bytes =
            readLine(card + QStringLiteral("/device/mem_info_vram_total")).toULongLong(&ok);
        if (ok && bytes > 0) {
            mMemoryMB = int(std::min<qulonglong>(bytes >> 20, 2147483647ULL));
            mValid = 1;
            chosen = card;
            break;
        }
    }
    // Without a card that reports memory, the first card still names the hardware.
    if (chosen.isEmpty() && !cards.isEmpty())
        chosen = cards.first();
    if (chosen.isEmpty())
        return;
    mVendor = readLine(chosen + QStringLiteral("/device/vendor"));
    mDevice = readLine(chosen + QStringLiteral("/device/device"));
    const QString driverLink = QFileInfo(chosen + QStringLiteral("/device/driver")).symLinkTarget();
    if (!driverLink.isEmpty())
        mDriver = QFileInfo(driverLink).fileName();
}

GfxCardInfoLinux::~GfxCardInfoLinux() {
    if (sSingleton == this)
        sSingleton = nullptr;
}

bool GfxCardInfoLinux::getGraphicsCardMemoryInMB(int& mb) {
    if (mValid == 1)
        mb = mMemoryMB;
    return mValid == 1;
}

namespace {

// Writes value, or "unimplemented" when it is unknown; true when it was known.
bool answer(const QString& value, QString& out) {
    out = value.isEmpty() ? kUnimplemented : value;
    return !value.isEmpty();
}

}  // namespace

bool GfxCardInfoLinux::getDisplayDeviceID(QString& id) {
    return answer(mVendor.isEmpty() || mDevice.isEmpty() ? QString()
                                                         : mVendor + QLatin1Char(':') + mDevice,
                  id);
}

bool GfxCardInfoLinux::getGraphicsCardVendor(QString& vendor) { return answer(mVendor, vendor); }

bool GfxCardInfoLinux::getGraphicsCardChipset(QString& chipset) {
    return answer(QString(), chipset);
}

bool GfxCardInfoLinux::getGraphicsCardDriver(QString& driver) { return answer(mDriver, driver); }

}  // namespace vanta
