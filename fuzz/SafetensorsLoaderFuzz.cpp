// Arbitrary bytes as a weights file: every tensor the header names is read back.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "speech/SafetensorsLoader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        tavorin::SafetensorsLoader loader(std::vector<char>(data, data + size));
        for (const auto& [name, info] : loader.tensors()) {
            try {
                (void)loader.floats(name);
            } catch (const tavorin::BARTG2PError&) {
            }
        }
    } catch (const tavorin::BARTG2PError&) {
    }
    return 0;
}
