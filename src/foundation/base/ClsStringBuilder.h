/// @file
/// A library object holding text.
#pragma once

#include "foundation/base/Api.h"

#include "foundation/base/ClsBase.h"
#include "foundation/text/XString.h"

/// A library object holding text in its public `m_str`.
///
/// Methods of other objects (such as `ClsFileAccess::AppendSb` and
/// `ClsFileAccess::ReadNextFragment`) read or append to `m_str` directly, taking no lock of
/// this object; `m_str` is not guarded by the object's lock, so while such a call runs no
/// other thread may use the object. The lock and the last-error log come from `ClsBase`.
class FA_API ClsStringBuilder : public ClsBase {
public:
    /// Makes an object holding empty text.
    ClsStringBuilder() = default;
    /// A new object holding empty text, or null when memory for it cannot be had; nothing is
    /// logged. The caller owns it and frees it with `delete` or `decRefCount`.
    static ClsStringBuilder* createNewCls();

    /// The text. Public and not guarded by the object's lock.
    XString m_str;
};
