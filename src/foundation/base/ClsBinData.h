// A library object holding bytes.
#pragma once

#include "foundation/base/ClsBase.h"
#include "foundation/text/DataBuffer.h"

class ClsBinData : public ClsBase {
public:
    ClsBinData() = default;
    static ClsBinData* createNewCls();

    DataBuffer m_data;
};
