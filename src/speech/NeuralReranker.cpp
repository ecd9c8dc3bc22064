#include "speech/NeuralReranker.hpp"

#include <algorithm>
#include <cmath>

#include <cblas.h>

#include "speech/SafetensorsLoader.hpp"
#include "speech/Utf8.hpp"

namespace tavorin {

namespace {

// Batch norm in inference is an affine map; folding it once keeps scoring to a multiply-add.
void foldBatchNorm(const SafetensorsLoader& w, const std::string& name, int n, std::vector<float>& scale,
                   std::vector<float>& bias) {
    const auto gamma = w.floats(name + ".weight", {n}), beta = w.floats(name + ".bias", {n});
    const auto mean = w.floats(name + ".running_mean", {n}), var = w.floats(name + ".running_var", {n});
    scale.resize(static_cast<std::size_t>(n));
    bias.resize(static_cast<std::size_t>(n));
    for (std::size_t i = 0; i < scale.size(); ++i) {
        scale[i] = gamma[i] / std::sqrt(var[i] + 1e-5f);
        bias[i] = beta[i] - mean[i] * scale[i];
    }
}

// A same-padded 1-D convolution over T positions as one product: each row of the unfolded
// input holds a position's window (channel-major, as the weights are laid out).
std::vector<float> conv(const std::vector<float>& x, int T, int inC, const std::vector<float>& w,
                        const std::vector<float>& b, const std::vector<float>& scale, const std::vector<float>& shift,
                        int outC, int K) {
    const int window = inC * K, half = K / 2;
    std::vector<float> unfolded(static_cast<std::size_t>(T) * static_cast<std::size_t>(window), 0.0f);
    for (int t = 0; t < T; ++t)
        for (int c = 0; c < inC; ++c)
            for (int k = 0; k < K; ++k) {
                const int src = t + k - half;
                if (src >= 0 && src < T)
                    unfolded[static_cast<std::size_t>(t * window + c * K + k)] = x[static_cast<std::size_t>(src * inC + c)];
            }
    std::vector<float> y(static_cast<std::size_t>(T) * static_cast<std::size_t>(outC));
    cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasTrans, T, outC, window, 1.0f, unfolded.data(), window, w.data(), window,
                0.0f, y.data(), outC);
    for (int t = 0; t < T; ++t)
        for (int o = 0; o < outC; ++o) {
            float& v = y[static_cast<std::size_t>(t * outC + o)];
            v = std::max(0.0f, (v + b[static_cast<std::size_t>(o)]) * scale[static_cast<std::size_t>(o)] +
                                   shift[static_cast<std::size_t>(o)]);
        }
    return y;
}

} // namespace

NeuralReranker::NeuralReranker(const std::filesystem::path& url) : NeuralReranker(SafetensorsLoader(url)) {}

NeuralReranker::NeuralReranker(const SafetensorsLoader& w) {
    const auto chars = w.metadata().find("chars");
    if (chars == w.metadata().end()) throw BARTG2PError::invalidSafetensors("The reranker's characters are missing");
    const auto u = utf8::decode(chars->second);
    for (std::size_t i = 0; i < u.size(); ++i) charToId_.emplace(u[i], static_cast<int>(i) + 1);
    const int nChars = static_cast<int>(u.size()) + 1;
    charEmbedW_ = w.floats("char_embed.weight", {nChars, kEmbed});
    typeEmbedW_ = w.floats("type_embed.weight", {2, kEmbed});
    conv1W_ = w.floats("conv1.weight", {kChannels, kEmbed, kKernel});
    conv1B_ = w.floats("conv1.bias", {kChannels});
    foldBatchNorm(w, "bn1", kChannels, bn1Scale_, bn1Bias_);
    conv2W_ = w.floats("conv2.weight", {kChannels, kChannels, kKernel});
    conv2B_ = w.floats("conv2.bias", {kChannels});
    foldBatchNorm(w, "bn2", kChannels, bn2Scale_, bn2Bias_);
    fc1W_ = w.floats("fc1.weight", {kHidden, kChannels + 2});
    fc1B_ = w.floats("fc1.bias", {kHidden});
    fc2W_ = w.floats("fc2.weight", {1, kHidden});
    fc2B_ = w.floats("fc2.bias", {1});
    featMean_ = w.floats("feat_mean", {2});
    featStd_ = w.floats("feat_std", {2});
}

float NeuralReranker::score(const std::string& word, const std::string& candidate, float modelLogProb,
                            float trigramLogProb) const {
    std::vector<std::pair<int, int>> seq;  // (character id, type)
    for (char32_t c : utf8::decode(word)) {
        const auto it = charToId_.find(c);
        seq.emplace_back(it == charToId_.end() ? 0 : it->second, 0);
    }
    for (char32_t c : utf8::decode(candidate)) {
        const auto it = charToId_.find(c);
        seq.emplace_back(it == charToId_.end() ? 0 : it->second, 1);
    }
    if (seq.size() > static_cast<std::size_t>(kMaxLength)) seq.resize(kMaxLength);
    const int T = std::max<int>(1, static_cast<int>(seq.size()));
    std::vector<float> x(static_cast<std::size_t>(T * kEmbed), 0.0f);
    for (std::size_t t = 0; t < seq.size(); ++t)
        for (int e = 0; e < kEmbed; ++e)
            x[t * kEmbed + static_cast<std::size_t>(e)] =
                charEmbedW_[static_cast<std::size_t>(seq[t].first * kEmbed + e)] +
                typeEmbedW_[static_cast<std::size_t>(seq[t].second * kEmbed + e)];
    const auto h1 = conv(x, T, kEmbed, conv1W_, conv1B_, bn1Scale_, bn1Bias_, kChannels, kKernel);
    const auto h2 = conv(h1, T, kChannels, conv2W_, conv2B_, bn2Scale_, bn2Bias_, kChannels, kKernel);
    std::vector<float> feats(kChannels + 2, 0.0f);
    for (int t = 0; t < T; ++t)
        for (int c = 0; c < kChannels; ++c) feats[static_cast<std::size_t>(c)] += h2[static_cast<std::size_t>(t * kChannels + c)];
    for (int c = 0; c < kChannels; ++c) feats[static_cast<std::size_t>(c)] /= static_cast<float>(T);
    feats[kChannels] = (modelLogProb - featMean_[0]) / featStd_[0];
    feats[kChannels + 1] = (trigramLogProb - featMean_[1]) / featStd_[1];
    std::vector<float> hidden(fc1B_);
    cblas_sgemv(CblasRowMajor, CblasNoTrans, kHidden, kChannels + 2, 1.0f, fc1W_.data(), kChannels + 2, feats.data(), 1,
                1.0f, hidden.data(), 1);
    for (auto& v : hidden) v = std::max(0.0f, v);
    float out = fc2B_[0];
    for (int i = 0; i < kHidden; ++i) out += fc2W_[static_cast<std::size_t>(i)] * hidden[static_cast<std::size_t>(i)];
    return out;
}

} // namespace tavorin
