// Linux sources of the user's locales (LANGUAGE, LC_ALL, LC_MESSAGES, LANG) and the browser
// launch through xdg-open.
#include <vanta/locales.h>
#include <vanta/system.h>

#include <QRegularExpression>
#include <QUrl>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

extern char** environ;

namespace vanta {

namespace {

// A locale setting as a canonical identifier: "de_CH.UTF-8@euro" gives "de_CH", "pt-br" gives
// "pt_BR". Null for "C", "POSIX" and anything that is not language[_Script][_REGION].
QString canonicalLocale(const QByteArray& setting) {
    static const QRegularExpression kForm(QStringLiteral(
        "^([A-Za-z]{2,3})(?:_([A-Za-z]{4}))?(?:_([A-Za-z]{2}|[0-9]{3}))?$"));
    QByteArray name = setting;
    const int at = name.indexOf('@');
    if (at >= 0)
        name.truncate(at);
    const int dot = name.indexOf('.');
    if (dot >= 0)
        name.truncate(dot);
    name.replace('-', '_');
    const QRegularExpressionMatch m = kForm.match(QString::fromLatin1(name));
    if (!m.hasMatch())
        return QString();
    QString canonical = m.captured(1).toLower();
    if (m.hasCaptured(2)) {
        const QString script = m.captured(2);
        canonical += QLatin1Char('_') + script.left(1).toUpper() + script.mid(1).toLower();
    }
    if (m.hasCaptured(3))
        canonical += QLatin1Char('_') + m.captured(3).toUpper();
    return canonical;
}

// The setting of the locale in force for messages, by the C library's precedence: LC_ALL when
// set, else LC_MESSAGES, else LANG ("C" when none is set; an empty variable counts as unset).
QByteArray localeInForce() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QByteArray value = qgetenv(variable);
        if (!value.isEmpty())
            return value;
    }
    return QByteArrayLiteral("C");
}

// The system's region locale: the locale in force, when it names a region ("de_CH"); null for
// a bare language, "C", "POSIX" or anything that is not a locale.
QString systemRegionLocale() {
    const QString canonical = canonicalLocale(localeInForce());
    return canonical.mid(3, 2).isEmpty() ? QString() : canonical;
}

}  // namespace

QStringList System::getPlatformPreferredLocaleList() {
    // LANGUAGE lists the user's languages in order, but the C library ignores it while the
    // locale in force is the untranslated "C" or "POSIX"; the locale in force comes after it.
    const QByteArray inForce = localeInForce();
    QList<QByteArray> settings;
    if (inForce != "C" && inForce != "POSIX")
        settings = qgetenv("LANGUAGE").split(':');
    settings.append(inForce);
    QStringList list;
    for (const QByteArray& setting : settings) {
        const QString canonical = canonicalLocale(setting);
        if (!canonical.isNull() && !list.contains(canonical))
            list.append(canonical);
    }
    // The language the application is written in ends every list, so its resources are found
    // whatever the user prefers.
    const QString development = QStringLiteral("en");
    if (!list.contains(development))
        list.append(development);
    return list;
}

QStringList System::adjustLocaleListForRegion(const QStringList& list) {
    // A head that already names a region (two characters from position 3) is the user's choice.
    if (list.isEmpty() || !list.first().mid(3, 2).isEmpty())
        return list;
    QStringList adjusted = list;
    const QString region = systemRegionLocale();
    if (!region.isNull() && list.first().left(2) == region.left(2))
        adjusted.prepend(region);
    return adjusted;
}

bool System::LaunchExternalBrowser(const QString& url, bool, bool) {
    if (url.isEmpty())
        return false;
    QString address = url;
    address.replace(QLatin1Char(' '), QStringLiteral("%20"));
    // Only whole addresses are handed on: a scheme, and a host for the web schemes.
    const QUrl parsed(address, QUrl::StrictMode);
    const QString scheme = parsed.scheme().toLower();
    const bool web = scheme == QLatin1String("http") || scheme == QLatin1String("https");
    if (!parsed.isValid() || scheme.isEmpty() || (web && parsed.host().isEmpty())) {
        sLastLaunchSucceded = false;
        return false;
    }
    QByteArray program("xdg-open");
    QByteArray argument = address.toUtf8();
    char* argv[] = {program.data(), argument.data(), nullptr};
    // The opener, and the browser it may start, must not share anything with the caller: a
    // session of its own (a terminal's hang-up or the caller's process group signals do not
    // reach it), no blocked or ignored signals inherited from the calling thread, and only
    // the standard descriptors (a pipe end left open in it would keep the caller's reader
    // waiting for an end of file for as long as the browser runs).
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    pid_t pid = 0;
    sLastLaunchSucceded = posix_spawnp(&pid, argv[0], &actions, &attributes, argv, environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (sLastLaunchSucceded) {
        // The opener hands the address to the browser and ends; reap it without making the
        // caller wait, so it never lingers as a zombie.
        std::thread([pid] {
            int status;
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
        }).detach();
    }
    return sLastLaunchSucceded;
}

}  // namespace vanta
