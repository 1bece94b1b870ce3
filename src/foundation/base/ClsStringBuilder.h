// A library object holding text.
#pragma once

#include "foundation/base/ClsBase.h"
#include "foundation/text/XString.h"

class ClsStringBuilder : public ClsBase {
public:
    ClsStringBuilder() = default;
    static ClsStringBuilder* createNewCls();

    XString m_str;
};
