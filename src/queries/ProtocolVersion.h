// The version test that gates every optional reply field, shared by the fetch queries.

#pragma once

// The debugger client's protocol version as the fetch queries receive it. A reply field added
// in protocol version 2.M is written only when the client is at least 2.M; a client that has
// not announced its version gets no optional field.
struct ProtocolVersion {
    int versionKnown;
    int majorVersion;
    int minorVersion;

    bool AtLeast2(int minor) const {
        return versionKnown != 0 &&
               (majorVersion > 2 || (majorVersion == 2 && minorVersion >= minor));
    }
};
