/// @file
/// The mark of what the library exports.
#pragma once

/// Marks a class or function of the public interface. A shared build hides every other symbol,
/// so only what carries this mark can be linked from outside the library.
#define FA_API __attribute__((visibility("default")))
