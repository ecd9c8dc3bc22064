#pragma once
// Reads a safetensors file: an 8-byte little-endian header length, a JSON header naming each
// tensor's dtype, shape and byte range, then the tensors' bytes. Everything is checked at
// load, so reading a tensor never goes outside the file.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavorin {

class BARTG2PError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    static BARTG2PError invalidSafetensors(const std::string& text) {
        return BARTG2PError("Invalid safetensors file: " + text);
    }
    static BARTG2PError missingTensor(const std::string& text) { return BARTG2PError("Missing tensor: " + text); }
};

class SafetensorsLoader {
public:
    struct TensorInfo {
        std::vector<std::int64_t> shape;
        std::string dtype;
        std::size_t dataOffset = 0;  // from the start of the data section
        std::size_t dataLength = 0;
    };

    explicit SafetensorsLoader(const std::filesystem::path& url);
    // From bytes already in memory (the fuzzer's way in).
    explicit SafetensorsLoader(std::vector<char> bytes);

    bool has(const std::string& name) const { return tensors_.count(name) != 0; }
    const TensorInfo& info(const std::string& name) const;
    // The named tensor as 32-bit floats; only "F32" tensors can be read this way.
    std::vector<float> floats(const std::string& name) const;
    // Like floats(), and the tensor must have exactly this shape.
    std::vector<float> floats(const std::string& name, const std::vector<std::int64_t>& shape) const;
    const std::map<std::string, TensorInfo>& tensors() const { return tensors_; }
    const std::map<std::string, std::string>& metadata() const { return metadata_; }

private:
    void parse();

    std::map<std::string, TensorInfo> tensors_;
    std::map<std::string, std::string> metadata_;
    std::vector<char> data_;
    std::size_t dataStart_ = 0;
};

} // namespace tavorin
