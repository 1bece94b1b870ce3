// A library object holding bytes.
#pragma once

#include "foundation/base/Api.h"

#include "foundation/base/ClsBase.h"
#include "foundation/text/DataBuffer.h"

class FA_API ClsBinData : public ClsBase {
public:
    ClsBinData() = default;
    static ClsBinData* createNewCls();

    DataBuffer m_data;
};
