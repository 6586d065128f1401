/// \file
/// Localized web addresses: the maker's domains, the help centre, and the browser launch result.
#pragma once

#include <vanta/export.h>
#include <QString>

namespace vanta {

/// The maker's second-level domain name: "<name>.com" is the commercial site that
/// System::getOrvaneURLLocalizedByLang rewrites to a country site ("<name>.de", "<name>.co.jp").
inline constexpr char kMakerDomainName[] = "orvane";
/// The product's host under the maker's commercial domain; it serves the help centre.
inline constexpr char kHelpHost[] = "vanta.orvane.com";

/// The help centre's base address for the current locale: "http://" + kHelpHost + "/support/",
/// localized by System::getOrvaneURLLocalizedByLang. Ends with "/".
VANTA_EXPORT QString getSupportCenterBin();

/// Whether the last System::LaunchExternalBrowser started the browser; true at load.
VANTA_EXPORT extern bool sLastLaunchSucceded;

}  // namespace vanta
