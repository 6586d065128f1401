/// \file
/// \brief `VANTA_EXPORT`, the mark of the libraries' public interface.
#pragma once

/// Gives a class, function or variable default visibility. The libraries are built with hidden
/// visibility, so only what carries this mark is exported; everything else stays internal and can
/// change without breaking a program linked against them.
#define VANTA_EXPORT __attribute__((visibility("default")))
