// vanta::GfxCardInfoLinux: graphics card facts from the kernel's DRM devices in sysfs and from
// the OpenGL renderer, asked through EGL loaded at run time.
#include <vanta/sysinfo.h>
#include <vanta/sysinfo_p.h>

#include <vanta/linux/platform_p.h>

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <EGL/egl.h>  // types and constants only: the library is opened with dlopen

#include <algorithm>
#include <cstring>
#include <dlfcn.h>

namespace vanta {

GfxCardInfoLinux* GfxCardInfoLinux::sSingleton = nullptr;

namespace {

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

namespace sysinfo {

bool isSoftwareRenderer(const QString& renderer) {
    static const QRegularExpression software(
        QStringLiteral("llvmpipe|softpipe|swrast|software rasterizer"),
        QRegularExpression::CaseInsensitiveOption);
    return software.match(renderer).hasMatch();
}

// EGL is opened at run time so that the library has no link-time dependency on a GL stack.
GlStrings askGl() {
    GlStrings gl;
    void* egl = dlopen("libEGL.so.1", RTLD_LAZY | RTLD_LOCAL);
    if (!egl)
        return gl;
    // libEGL stays loaded: some drivers do not survive being unloaded while the process runs.
    auto getProc = reinterpret_cast<PFNEGLGETPROCADDRESSPROC>(dlsym(egl, "eglGetProcAddress"));
    if (!getProc)
        return gl;
    auto fn = [&](const char* name) { return getProc(name); };
    auto queryString = reinterpret_cast<PFNEGLQUERYSTRINGPROC>(fn("eglQueryString"));
    auto getDisplay = reinterpret_cast<PFNEGLGETDISPLAYPROC>(fn("eglGetDisplay"));
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYPROC>(fn("eglGetPlatformDisplay"));
    auto initialize = reinterpret_cast<PFNEGLINITIALIZEPROC>(fn("eglInitialize"));
    auto terminate = reinterpret_cast<PFNEGLTERMINATEPROC>(fn("eglTerminate"));
    auto bindApi = reinterpret_cast<PFNEGLBINDAPIPROC>(fn("eglBindAPI"));
    auto chooseConfig = reinterpret_cast<PFNEGLCHOOSECONFIGPROC>(fn("eglChooseConfig"));
    auto createContext = reinterpret_cast<PFNEGLCREATECONTEXTPROC>(fn("eglCreateContext"));
    auto destroyContext = reinterpret_cast<PFNEGLDESTROYCONTEXTPROC>(fn("eglDestroyContext"));
    auto createPbuffer =
        reinterpret_cast<PFNEGLCREATEPBUFFERSURFACEPROC>(fn("eglCreatePbufferSurface"));
    auto destroySurface = reinterpret_cast<PFNEGLDESTROYSURFACEPROC>(fn("eglDestroySurface"));
    auto makeCurrent = reinterpret_cast<PFNEGLMAKECURRENTPROC>(fn("eglMakeCurrent"));
    auto releaseThread = reinterpret_cast<PFNEGLRELEASETHREADPROC>(fn("eglReleaseThread"));
    using GetString = const unsigned char* (*)(unsigned int);
    auto glGetString = reinterpret_cast<GetString>(fn("glGetString"));
    if (!queryString || !getDisplay || !initialize || !terminate || !bindApi || !chooseConfig ||
        !createContext || !destroyContext || !createPbuffer || !destroySurface || !makeCurrent ||
        !releaseThread || !glGetString)
        return gl;

    // Without a window system (a server, a test run) the surfaceless platform still reaches the
    // render devices; otherwise the default display is the one the desktop uses.
    EGLDisplay display = EGL_NO_DISPLAY;
    const char* clientExtensions = queryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (getPlatformDisplay && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") && clientExtensions &&
        std::strstr(clientExtensions, "EGL_MESA_platform_surfaceless"))
        display = getPlatformDisplay(0x31DD /* EGL_PLATFORM_SURFACELESS_MESA */,
                                     EGL_DEFAULT_DISPLAY, nullptr);
    if (display == EGL_NO_DISPLAY)
        display = getDisplay(EGL_DEFAULT_DISPLAY);
    EGLint major = 0, minor = 0;
    if (display == EGL_NO_DISPLAY || !initialize(display, &major, &minor))
        return gl;

    const EGLint configAttributes[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE,
                                       EGL_OPENGL_BIT, EGL_NONE};
    const EGLint surfaceAttributes[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint configs = 0;
    if (bindApi(EGL_OPENGL_API) && chooseConfig(display, configAttributes, &config, 1, &configs) &&
        configs == 1) {
        EGLContext context = createContext(display, config, EGL_NO_CONTEXT, nullptr);
        EGLSurface surface = createPbuffer(display, config, surfaceAttributes);
        if (context != EGL_NO_CONTEXT && surface != EGL_NO_SURFACE &&
            makeCurrent(display, surface, surface, context)) {
            auto text = [&](unsigned int name) {
                const unsigned char* s = glGetString(name);
                return s ? QString::fromUtf8(reinterpret_cast<const char*>(s)) : QString();
            };
            gl.vendor = text(0x1F00);    // GL_VENDOR
            gl.renderer = text(0x1F01);  // GL_RENDERER
            gl.version = text(0x1F02);   // GL_VERSION
            makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        }
        if (surface != EGL_NO_SURFACE)
            destroySurface(display, surface);
        if (context != EGL_NO_CONTEXT)
            destroyContext(display, context);
    }
    terminate(display);
    releaseThread();
    return gl;
}

}  // namespace sysinfo

GfxCardInfoLinux::GfxCardInfoLinux(const QString& sysfsRoot, bool askRenderer) {
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
    if (!chosen.isEmpty()) {
        mVendor = readLine(chosen + QStringLiteral("/device/vendor"));
        mDevice = readLine(chosen + QStringLiteral("/device/device"));
        const QString driverLink =
            QFileInfo(chosen + QStringLiteral("/device/driver")).symLinkTarget();
        if (!driverLink.isEmpty())
            mDriver = QFileInfo(driverLink).fileName();
    }
    // Without a DRM card there is no hardware renderer to find, and loading a GL stack only to
    // meet a software rasteriser costs time and memory.
    if (!askRenderer || cards.isEmpty())
        return;
    const sysinfo::GlStrings gl = sysinfo::askGl();
    if (gl.renderer.isEmpty() || sysinfo::isSoftwareRenderer(gl.renderer))
        return;
    // A hardware renderer names the card better than PCI numbers do.
    mGlVendor = gl.vendor;
    mChipset = gl.renderer;
    mGlVersion = gl.version;
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
    out = value.isEmpty() ? QStringLiteral("unimplemented") : value;
    return !value.isEmpty();
}

}  // namespace

bool GfxCardInfoLinux::getDisplayDeviceID(QString& id) {
    return answer(mVendor.isEmpty() || mDevice.isEmpty() ? QString()
                                                         : mVendor + QLatin1Char(':') + mDevice,
                  id);
}

bool GfxCardInfoLinux::getGraphicsCardVendor(QString& vendor) {
    return answer(mGlVendor.isEmpty() ? mVendor : mGlVendor, vendor);
}

bool GfxCardInfoLinux::getGraphicsCardChipset(QString& chipset) {
    return answer(mChipset, chipset);
}

bool GfxCardInfoLinux::getGraphicsCardDriver(QString& driver) {
    return answer(mDriver.isEmpty() ? mGlVersion : mDriver, driver);
}

}  // namespace vanta
