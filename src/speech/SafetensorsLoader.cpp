#include "speech/SafetensorsLoader.hpp"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include <nlohmann/json.hpp>

namespace tavorin {

namespace {

std::size_t dtypeSize(const std::string& dtype) {
    if (dtype == "F64" || dtype == "I64" || dtype == "U64") return 8;
    if (dtype == "F32" || dtype == "I32" || dtype == "U32") return 4;
    if (dtype == "F16" || dtype == "BF16" || dtype == "I16" || dtype == "U16") return 2;
    if (dtype == "I8" || dtype == "U8" || dtype == "BOOL" || dtype == "F8_E4M3" || dtype == "F8_E5M2") return 1;
    return 0;
}

std::string shapeText(const std::vector<std::int64_t>& shape) {
    std::string s = "[";
    for (std::size_t i = 0; i < shape.size(); ++i) s += (i ? ", " : "") + std::to_string(shape[i]);
    return s + "]";
}

} // namespace

SafetensorsLoader::SafetensorsLoader(const std::filesystem::path& url) {
    std::ifstream in(url, std::ios::binary);
    if (!in) throw BARTG2PError::invalidSafetensors("cannot read " + url.string());
    data_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    parse();
}

SafetensorsLoader::SafetensorsLoader(std::vector<char> bytes) : data_(std::move(bytes)) { parse(); }

void SafetensorsLoader::parse() {
    if (data_.size() < 8) throw BARTG2PError::invalidSafetensors("File is too short");
    std::uint64_t headerLength = 0;
    for (int i = 7; i >= 0; --i) headerLength = (headerLength << 8) | static_cast<unsigned char>(data_[i]);
    if (headerLength > data_.size() - 8) throw BARTG2PError::invalidSafetensors("Header exceeds file size");
    dataStart_ = 8 + static_cast<std::size_t>(headerLength);
    const std::size_t dataSize = data_.size() - dataStart_;

    auto header = nlohmann::json::parse(data_.begin() + 8, data_.begin() + static_cast<std::ptrdiff_t>(dataStart_),
                                        nullptr, false);
    if (header.is_discarded() || !header.is_object()) throw BARTG2PError::invalidSafetensors("Invalid header JSON");

    for (const auto& item : header.items()) {
        const std::string name = item.key();
        const auto& entry = item.value();
        if (name == "__metadata__") {
            if (entry.is_object())
                for (const auto& [k, v] : entry.items())
                    if (v.is_string()) metadata_[k] = v.get<std::string>();
            continue;
        }
        const auto bad = [&](const std::string& why) { return BARTG2PError::invalidSafetensors("Tensor " + name + " " + why); };
        if (!entry.is_object()) throw bad("is not described by an object");
        const auto dtype = entry.find("dtype");
        const auto shape = entry.find("shape");
        const auto offsets = entry.find("data_offsets");
        if (dtype == entry.end() || !dtype->is_string()) throw bad("has no dtype");
        if (shape == entry.end() || !shape->is_array()) throw bad("has no shape");
        if (offsets == entry.end() || !offsets->is_array() || offsets->size() != 2 ||
            !(*offsets)[0].is_number_unsigned() || !(*offsets)[1].is_number_unsigned())
            throw bad("has no valid data offsets");
        TensorInfo info;
        info.dtype = dtype->get<std::string>();
        // Elements are counted in bytes' worth, so a shape too big for the file fails before it can overflow.
        std::uint64_t elements = 1;
        for (const auto& d : *shape) {
            if (!d.is_number_unsigned()) throw bad("has an invalid shape");
            const auto n = d.get<std::uint64_t>();
            if (n > dataSize || (n && elements > dataSize / n)) throw bad("is larger than the file");
            elements *= n;
            info.shape.push_back(static_cast<std::int64_t>(n));
        }
        const auto begin = (*offsets)[0].get<std::uint64_t>();
        const auto end = (*offsets)[1].get<std::uint64_t>();
        if (begin > end || end > dataSize) throw bad("has data offsets outside the file");
        info.dataOffset = static_cast<std::size_t>(begin);
        info.dataLength = static_cast<std::size_t>(end - begin);
        if (const auto size = dtypeSize(info.dtype); size && elements * size != info.dataLength)
            throw bad("has " + std::to_string(info.dataLength) + " bytes for shape " + shapeText(info.shape));
        tensors_.emplace(name, std::move(info));
    }

    std::vector<std::pair<std::size_t, const std::string*>> ranges;
    for (const auto& [name, info] : tensors_)
        if (info.dataLength) ranges.emplace_back(info.dataOffset, &name);
    std::sort(ranges.begin(), ranges.end());
    for (std::size_t i = 1; i < ranges.size(); ++i) {
        const auto& prev = tensors_.at(*ranges[i - 1].second);
        if (ranges[i].first < prev.dataOffset + prev.dataLength)
            throw BARTG2PError::invalidSafetensors("Tensors " + *ranges[i - 1].second + " and " + *ranges[i].second +
                                                   " overlap");
    }
}

const SafetensorsLoader::TensorInfo& SafetensorsLoader::info(const std::string& name) const {
    const auto it = tensors_.find(name);
    if (it == tensors_.end()) throw BARTG2PError::missingTensor(name);
    return it->second;
}

std::vector<float> SafetensorsLoader::floats(const std::string& name) const {
    const auto& t = info(name);
    if (t.dtype != "F32")
        throw BARTG2PError::invalidSafetensors("Tensor " + name + " is " + t.dtype + ", not 32-bit floats");
    std::vector<float> out(t.dataLength / 4);
    const char* p = data_.data() + dataStart_ + t.dataOffset;
    for (std::size_t i = 0; i < out.size(); ++i) {
        std::uint32_t bits = 0;
        for (int b = 3; b >= 0; --b) bits = (bits << 8) | static_cast<unsigned char>(p[i * 4 + static_cast<std::size_t>(b)]);
        std::memcpy(&out[i], &bits, 4);
    }
    return out;
}

std::vector<float> SafetensorsLoader::floats(const std::string& name, const std::vector<std::int64_t>& shape) const {
    const auto& t = info(name);
    if (t.shape != shape)
        throw BARTG2PError::invalidSafetensors("Tensor " + name + " has shape " + shapeText(t.shape) + ", not " +
                                               shapeText(shape));
    return floats(name);
}

} // namespace tavorin
