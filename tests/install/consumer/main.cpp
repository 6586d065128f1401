// A consumer of the installed library: includes the umbrella header, uses a lock, and writes and
// reads a zip archive through the library's callbacks with minizip's own calls.
#include <vanta/base.h>

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main() {
    vanta::SpinLock lock;
    if (lock.lock() != 0 || lock.unlock() != 0)
        return 1;
    const char* tmp = std::getenv("TMPDIR");
    const std::string archive = std::string(tmp ? tmp : "/tmp") + "/vanta-consumer.zip";
    zipFile zip = vanta::zipOpen_UTF8(archive.c_str(), APPEND_STATUS_CREATE);
    zip_fileinfo info = {};
    if (!zip || zipOpenNewFileInZip(zip, "a.txt", &info, nullptr, 0, nullptr, 0, nullptr,
                                    Z_DEFLATED, Z_DEFAULT_COMPRESSION) != ZIP_OK ||
        zipWriteInFileInZip(zip, "abc", 3) != ZIP_OK || zipCloseFileInZip(zip) != ZIP_OK ||
        zipClose(zip, nullptr) != ZIP_OK)
        return 2;
    unzFile unz = vanta::unzOpen_UTF8(archive.c_str());
    const bool read = unz && unzGoToFirstFile(unz) == UNZ_OK;
    if (!unz || unzClose(unz) != UNZ_OK || !read)
        return 3;
    std::remove(archive.c_str());
    std::printf("consumer ok: %d processors\n", vanta::System::getNumProcessors());
    return 0;
}
