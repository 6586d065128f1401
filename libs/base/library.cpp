// vanta::Library: shared libraries from the install folder by short name; autorelease tokens.
#include <vanta/library.h>
#include <vanta/memory.h>
#include <vanta/system.h>

#include <cstdio>
#include <dlfcn.h>
#include <new>

namespace vanta {

// The loader state behind a Library. The old-loader workarounds that other systems needed
// (calling a dummy initialiser symbol, searching the global scope on a miss) have no place
// here: this loader runs initialisers itself, so the record holds no system version.
struct LibraryData {
    void* handle = nullptr;  // the loader's handle, null while not loaded
    bool loaded = false;
    QString name;
};

Library::Library(const QString& name) {
    // Out of memory leaves d null: the object then behaves as a library that never loads.
    void* block = doNew(sizeof(LibraryData));
    d = block ? new (block) LibraryData : nullptr;
    if (d)
        d->name = name;
}

Library::~Library() {
    if (d) {
        d->~LibraryData();
        doDelete(d);
    }
}

bool Library::load() {
    if (!d)
        return false;
    if (d->name.isEmpty()) {
        d->loaded = true;
        return true;
    }
    if (d->loaded)
        return false;
    const QByteArray path = getFilePath().toUtf8();
    d->handle = dlopen(path.constData(), RTLD_LAZY | RTLD_GLOBAL);
    if (!d->handle) {
        const char* reason = dlerror();
        std::fprintf(stderr, "Failed to load \"%s\" because \"%s\"\n", path.constData(),
                     reason ? reason : "unknown");
        return false;
    }
    d->loaded = true;
    return true;
}

bool Library::unload() {
    if (!d || !d->loaded)
        return false;
    const int result = d->handle ? dlclose(d->handle) : 0;
    d->loaded = false;
    d->handle = nullptr;
    return result == 0;
}

bool Library::isLoaded() { return d && d->loaded; }

void* Library::resolve(const QString& symbol) {
    if (!d || !d->loaded || !d->handle)
        return nullptr;
    return dlsym(d->handle, symbol.toUtf8().constData());
}

QString Library::getLibraryName() const { return d ? d->name : QString(); }

QString Library::getFilePath() const {
    if (!d || d->name.isEmpty())
        return QString();
    QString path, base;
    calculatePathAndBaseName(path, base);
    // "lib" goes right after the folder part, before the separator that starts base: deployed
    // plugin folders are laid out as <folder>lib/<name>.so.
    return path + QStringLiteral("lib") + base + QStringLiteral(".so");
}

void Library::calculatePathAndBaseName(QString& path, QString& base) const {
    path = System::getInstallPath();
    base = getLibraryName();
    const int slash = base.lastIndexOf(QLatin1Char('/'));
    if (slash >= 0) {
        path += base.left(slash);
        base = base.mid(slash);
    }
}

namespace {
char gAutoreleaseToken;
}

void* createAutoreleasePool() { return &gAutoreleaseToken; }

void releaseAutoreleasePool(void*) {}

}  // namespace vanta
