/// Names that no object, setting or value has.
#pragma once

#include <string>
#include <vector>

namespace validate {

/// Names that resemble contract names, and others that a careless comparison or format would mistake.
inline std::vector<std::string> GarbageNames() {
    return {"",
            "struct",
            "OKM8::IContract",
            "IContract",
            "struct OKM8::IContrac",
            "struct OKM8::IContract ",
            "struct OKM8::IContract2",
            " struct OKM8::IContract",
            "STRUCT OKM8::ICONTRACT",
            "struct okm8::icontract",
            "class OKM8::IContract",
            "struct OKM8::IAsyncAdjuster ",
            "struct OKM8::iasyncadjuster",
            "struct OKM8::Analytics::IModul",
            "struct OKM8::Analytics::IMediaReceiverSingle3",
            "%s%s%s%n",
            "\xff\xfe\x80",
            std::string(100000, 'x')};
}

}  // namespace validate
