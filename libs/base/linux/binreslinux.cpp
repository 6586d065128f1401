// Packaged resources on Linux: the data folder of the prefix the program is installed in.
#include <vanta/binres.h>

#include <vanta/system.h>

#include <QDir>
#include <QFileInfo>

namespace vanta {

namespace {

// The program's folder with a trailing "/": the install path once the application has set it,
// else the folder of the running executable, so an unconfigured program still finds the
// resources installed beside it.
QString programFolder() {
    const QString installPath = System::getInstallPath();
    if (!installPath.isEmpty())
        return installPath;
    const QFileInfo self(QStringLiteral("/proc/self/exe"));
    return self.symLinkTarget().isEmpty() ? QString()
                                          : QFileInfo(self.symLinkTarget()).path() + QLatin1Char('/');
}

}  // namespace

// Resources live where Linux keeps a program's data, PREFIX/share/vanta/Resources, found from
// PREFIX/bin; the build tree mirrors that beside the built tool.
QString GetResourceFolder() {
    return QDir::cleanPath(programFolder() + QStringLiteral("../share/vanta/Resources"));
}

QString GetInstalledResourcePath(const QString& type, const QString& name) {
    if (name.isEmpty())
        return QString();
    const QString path = GetResourceFolder() + QLatin1Char('/') + name + QLatin1Char('.') +
                         type.toLower();
    return QFileInfo(path).isFile() ? path : QString();
}

}  // namespace vanta
