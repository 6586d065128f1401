// libFuzzer target: version numbers ("a.b.c") read from arbitrary UTF-8 text.
#include <vanta/versioninfo.h>

#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    bool ok = false;
    const int value = VersionInfo::parseVersionNumber(text, &ok);
    if (VersionInfo::parseVersionNumber(text) != value)
        std::abort();
    // A fourth part always marks the text as not a version, whatever it holds.
    bool okWithMore = true;
    VersionInfo::parseVersionNumber(text + QStringLiteral(".1.2.3.4"), &okWithMore);
    if (okWithMore)
        std::abort();
    return 0;
}
