// A library object holding text.
#pragma once

#include "foundation/base/Api.h"

#include "foundation/base/ClsBase.h"
#include "foundation/text/XString.h"

class FA_API ClsStringBuilder : public ClsBase {
public:
    ClsStringBuilder() = default;
    static ClsStringBuilder* createNewCls();

    XString m_str;
};
