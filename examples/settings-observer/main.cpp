// A group of typed settings, an observer that hears of real changes, and the save/restore stack
// that rolls a batch of changes back.
#include <vanta/settings.h>
#include <vanta/typedsetting.h>

#include <cstdio>

namespace {

// Settings and groups belong to the main thread; observers are called there, synchronously.
class Printer : public vanta::SettingObserver {
public:
    using SettingObserver::SettingObserver;
    int changes = 0;

    void onSettingChanged(const Event& event) override {
        ++changes;
        std::printf("  changed: %s = %s\n", event.setting->getName().toUtf8().constData(),
                    event.setting->toString().toUtf8().constData());
    }
    void onSettingPreDelete(const Event&) override {}
};

}  // namespace

int main() {
    vanta::SettingGroup display(QStringLiteral("Display"));
    vanta::IntSetting cacheSize(display, QStringLiteral("cacheSize"), 100);
    vanta::TypedSetting<bool> showGrid(display, QStringLiteral("showGrid"), false);

    Printer printer(cacheSize);
    cacheSize.set(200);
    cacheSize.set(200);  // the same value: observers are not told

    std::printf("trying a batch of changes:\n");
    vanta::Setting::pushAllSettings();
    cacheSize.set(500);
    showGrid.set(true);
    vanta::Setting::popAllSettings();  // rolls both back, silently
    std::printf("rolled back: cacheSize = %d, showGrid = %s\n", cacheSize.getValue(),
                showGrid.getValue() ? "true" : "false");

    return printer.changes == 2 && cacheSize.getValue() == 200 && !showGrid.getValue() ? 0 : 1;
}
