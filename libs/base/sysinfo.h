/// \file
/// Graphics card facts: the GfxCardInfo interface and its Linux implementation.
#pragma once

#include <vanta/export.h>
#include <QString>

namespace vanta {

/// What the renderer may ask about the graphics card. Each getter answers whether its result is
/// valid; the text getters write "unimplemented" when they have no answer.
class VANTA_EXPORT GfxCardInfo {
public:
    /// The card's own memory in megabytes; mb is written only when the answer is true.
    virtual bool getGraphicsCardMemoryInMB(int& mb) = 0;
    virtual bool getDisplayDeviceID(QString& id) = 0;  ///< The display device's identifier.
    virtual bool getGraphicsCardVendor(QString& vendor) = 0;  ///< The card's vendor.
    virtual bool getGraphicsCardChipset(QString& chipset) = 0;  ///< The card's chipset.
    virtual bool getGraphicsCardDriver(QString& driver) = 0;  ///< The kernel driver's name.
    virtual ~GfxCardInfo();

    /// The one live record, created with new on first use (and again after it was deleted).
    /// Not thread-safe: call it from the user-interface thread.
    static GfxCardInfo* getSingleton();
};

/// The card as the kernel's DRM devices describe it: `<root>/class/drm/cardN/device` with its PCI
/// vendor and device numbers, its driver link and, where the driver offers it,
/// mem_info_vram_total. The first card (lowest N) that reports memory is the one described; a
/// machine without one answers false to the memory query. On a machine with a DRM card whose
/// default OpenGL renderer is a hardware one (not a software rasteriser), the renderer's vendor
/// and renderer strings name the card.
/// Everything is read once, in the constructor.
class VANTA_EXPORT GfxCardInfoLinux : public GfxCardInfo {
public:
    /// sysfsRoot is "/sys" in use; tests point it at a prepared tree. askRenderer false skips the
    /// OpenGL query (which may take a moment while a driver loads). Becomes sSingleton.
    explicit GfxCardInfoLinux(const QString& sysfsRoot = QStringLiteral("/sys"),
                              bool askRenderer = true);
    /// Clears sSingleton when it points here.
    ~GfxCardInfoLinux() override;

    bool getGraphicsCardMemoryInMB(int& mb) override;
    /// "<vendor>:<device>" PCI numbers, e.g. "0x1002:0x73bf".
    bool getDisplayDeviceID(QString& id) override;
    /// The renderer's vendor string, else the PCI vendor number ("0x1002").
    bool getGraphicsCardVendor(QString& vendor) override;
    /// The renderer string of a hardware renderer; "unimplemented" (false) without one.
    bool getGraphicsCardChipset(QString& chipset) override;
    /// The kernel driver's name ("amdgpu"), else the renderer's GL version string.
    bool getGraphicsCardDriver(QString& driver) override;

    /// The most recently constructed live record, or null.
    static GfxCardInfoLinux* sSingleton;

private:
    int mMemoryMB = 0;
    int mValid = 0;  ///< 1 when mMemoryMB holds the card's memory
    QString mVendor;
    QString mDevice;
    QString mDriver;     ///< kernel driver name
    QString mGlVendor;   ///< the strings of a hardware OpenGL renderer, else empty
    QString mChipset;
    QString mGlVersion;
};

}  // namespace vanta
