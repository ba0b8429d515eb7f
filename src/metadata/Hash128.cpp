#include "metadata/Hash128.h"

#include "plugin/LogFormat.h"

std::string Hash128::ToString() const {
    return logfmt::UpperHex(this, sizeof *this);
}
