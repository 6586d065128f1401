// vanta::System's locale state, preferred-locale lists and localized help addresses.
#include <vanta/locales.h>
#include <vanta/system.h>
#include <vanta/versioninfo.h>

#include <QRegularExpression>
#include <QSettings>

#include <memory>

namespace vanta {

QString System::locale = QStringLiteral("en_US");
bool sLastLaunchSucceded = true;

namespace {

// The "locale" entry of the per-user application settings, or null when none was saved.
QString savedLocaleChoice() {
    std::unique_ptr<QSettings> settings(VersionInfo::createUserAppSettings());
    if (!settings->contains(QStringLiteral("locale")))
        return QString();
    return settings->value(QStringLiteral("locale"), QStringLiteral("en_US")).toString();
}

}  // namespace

void System::setCurrentLocale(const QString& l) { locale = l; }

QString System::getCurrentLocale() { return locale; }

QStringList System::getPreferredLocaleList() {
    QStringList list = getPlatformPreferredLocaleList();
    const QString saved = savedLocaleChoice();
    // Only a saved entry goes in front (a duplicate further down stays): the default is not
    // a choice the user made.
    if (!saved.isNull())
        list.prepend(saved);
    return list;
}

QStringList System::getPreferredLocaleListWithRegionEmphasis() {
    return adjustLocaleListForRegion(getPreferredLocaleList());
}

QString System::getOrvaneURLLocalizedByLang(const QString& url) {
    static const struct {
        const char* language;
        const char* country;
    } kSites[] = {{"de", "de"}, {"es", "es"}, {"fr", "fr"}, {"it", "it"}, {"ja", "co.jp"}};
    // The maker's ".com" domain as a whole host label sequence: "www.orvane.com" matches,
    // "notorvane.com" and "orvane.community" do not.
    static const QRegularExpression kCommercialDomain(
        QStringLiteral("(?<![A-Za-z0-9-])(%1)\\.com(?![A-Za-z0-9-])")
            .arg(QRegularExpression::escape(QString::fromLatin1(kMakerDomainName))),
        QRegularExpression::CaseInsensitiveOption);

    const QString language = getCurrentLocale().left(2);
    for (const auto& site : kSites) {
        if (language == QLatin1String(site.language)) {
            QString localized = url;
            localized.replace(kCommercialDomain,
                              QStringLiteral("\\1.") + QLatin1String(site.country));
            return localized;
        }
    }
    return url;
}

QString getSupportCenterBin() {
    return System::getOrvaneURLLocalizedByLang(QStringLiteral("http://") +
                                               QLatin1String(kHelpHost) +
                                               QStringLiteral("/support/"));
}

QString System::getLocalizedSupportURL(int answer) {
    return getSupportCenterBin() + QStringLiteral("answer?id=") + QString::number(answer);
}

QString System::getLocalizedSupportTopicURL(int topic) {
    return getSupportCenterBin() + QStringLiteral("topic?id=") + QString::number(topic);
}

QString System::getLocalizedContactSupportURL() {
    return getSupportCenterBin() + QStringLiteral("contact");
}

void System::showBrowserError(int, const QString&) {}

bool System::doesAppOwnDocumentType() { return true; }

void System::restoreDocumentTypeAssociation() {}

}  // namespace vanta
