/// @file
/// A library object holding bytes.
#pragma once

#include "foundation/base/Api.h"

#include "foundation/base/ClsBase.h"
#include "foundation/text/DataBuffer.h"

/// A library object holding bytes in its public `m_data`.
///
/// Methods of other objects (the `Bd` methods of `ClsFileAccess`) read, fill or append to
/// `m_data` directly, taking no lock of this object; `m_data` is not guarded by the object's
/// lock, so while such a call runs no other thread may use the object. The lock and the
/// last-error log come from `ClsBase`.
class FA_API ClsBinData : public ClsBase {
public:
    /// Makes an object holding no bytes.
    ClsBinData() = default;
    /// A new object holding no bytes, or null when memory for it cannot be had; nothing is
    /// logged. The caller owns it and frees it with `delete` or `decRefCount`.
    static ClsBinData* createNewCls();

    /// The bytes. Public and not guarded by the object's lock.
    DataBuffer m_data;
};
