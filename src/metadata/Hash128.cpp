// Text form of a Hash128 for the log.
#include "metadata/Hash128.h"

#include "plugin/LogFormat.h"

std::string Hash128::ToString() const {
    return logfmt::UpperHex(this, sizeof *this);
}
