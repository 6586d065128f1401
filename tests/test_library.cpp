// Tests of vanta::Library: a real plugin loaded by short name from an install folder.
#include <vanta/library.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace vanta;
using testing::HasSubstr;

namespace {

// Points the install path at the folder the test tree built the plugin into, for one test.
class LibraryTest : public testing::Test {
protected:
    void SetUp() override { System::setInstallPath(QStringLiteral(VANTA_TEST_PLUGIN_DIR)); }
    void TearDown() override { System::setInstallPath(QString()); }
};

using TwiceFn = int (*)(int);
TwiceFn twiceIn(Library& library) {
    return reinterpret_cast<TwiceFn>(library.resolve(QStringLiteral("vantaTestPluginTwice")));
}

}  // namespace

TEST_F(LibraryTest, FilePathPutsLibBeforeTheLastSeparator) {
    const QString install = QStringLiteral(VANTA_TEST_PLUGIN_DIR "/");
    const struct {
        const char* name;
        // getFilePath, and calculatePathAndBaseName's path and base; paths after the install path
        const char *path, *folder, *base;
    } rows[] = {{"x", "libx.so", "", "x"},
                {"plugins/x", "pluginslib/x.so", "plugins", "/x"},
                {"a/b/c", "a/blib/c.so", "a/b", "/c"}};
    for (const auto& row : rows) {
        Library library(QString::fromUtf8(row.name));
        EXPECT_EQ(library.getFilePath(), install + row.path) << row.name;
        QString path, base;
        library.calculatePathAndBaseName(path, base);
        EXPECT_EQ(path, install + row.folder) << row.name;
        EXPECT_EQ(base, QString::fromUtf8(row.base)) << row.name;
    }
    EXPECT_EQ(Library(QString()).getFilePath(), QString());
}

TEST_F(LibraryTest, LoadsByBaseNameAndResolves) {
    for (const char* name : {"vantatestplugin", "plugins/vantatestplugin"}) {
        SCOPED_TRACE(name);
        Library library(QString::fromUtf8(name));
        EXPECT_FALSE(library.isLoaded());
        EXPECT_EQ(twiceIn(library), nullptr);
        ASSERT_TRUE(library.load());
        EXPECT_TRUE(library.isLoaded());
        EXPECT_FALSE(library.load());  // already loaded
        ASSERT_NE(twiceIn(library), nullptr);
        EXPECT_EQ(twiceIn(library)(21), 42);
        auto loads =
            reinterpret_cast<int (*)()>(library.resolve(QStringLiteral("vantaTestPluginLoads")));
        ASSERT_NE(loads, nullptr);
        EXPECT_GE(loads(), 1);  // the loader ran the plugin's initialiser
        EXPECT_EQ(library.resolve(QStringLiteral("noSuchSymbol")), nullptr);
        EXPECT_TRUE(library.unload());
        EXPECT_FALSE(library.isLoaded() || library.unload());
        EXPECT_EQ(twiceIn(library), nullptr);
        EXPECT_TRUE(library.load());  // loads again after unload
    }
    // Destroying a Library does not unload it: what it resolved stays callable.
    TwiceFn twice = nullptr;
    {
        Library library(QStringLiteral("vantatestplugin"));
        ASSERT_TRUE(library.load());
        twice = twiceIn(library);
    }
    EXPECT_EQ(twice(5), 10);
}

TEST_F(LibraryTest, EmptyNameIsTheProgramItself) {
    Library self{QString()};
    EXPECT_TRUE(self.load() && self.isLoaded());
    EXPECT_EQ(self.resolve(QStringLiteral("main")), nullptr);
    EXPECT_TRUE(self.unload());
}

TEST_F(LibraryTest, MissingLibraryReportsAndStaysUnloaded) {
    for (const char* name : {"nosuchplugin", "no/such/plugin"}) {
        Library library(QString::fromUtf8(name));
        testing::internal::CaptureStderr();
        EXPECT_FALSE(library.load());
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_THAT(said, HasSubstr("Failed to load \"" +
                                    library.getFilePath().toStdString() + "\" because \""));
        EXPECT_EQ(said.back(), '\n');
        EXPECT_FALSE(library.isLoaded());
    }
}
