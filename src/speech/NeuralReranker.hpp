#pragma once
// A small convolutional network that reads a word and one candidate pronunciation side by
// side, with the model's and the trigram model's scores, and says how good the candidate is.
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

namespace tavorin {

class SafetensorsLoader;

class NeuralReranker {
public:
    // A safetensors file; its metadata "chars" lists the characters whose ids are 1, 2, ...
    explicit NeuralReranker(const std::filesystem::path& url);
    explicit NeuralReranker(const SafetensorsLoader& weights);

    // Higher is better.
    float score(const std::string& word, const std::string& candidate, float modelLogProb, float trigramLogProb) const;

    static constexpr int kEmbed = 32, kChannels = 64, kKernel = 5, kHidden = 32, kMaxLength = 128;

private:
    std::unordered_map<char32_t, int> charToId_;
    std::vector<float> charEmbedW_, typeEmbedW_;
    std::vector<float> conv1W_, conv1B_, bn1Scale_, bn1Bias_;
    std::vector<float> conv2W_, conv2B_, bn2Scale_, bn2Bias_;
    std::vector<float> fc1W_, fc1B_, fc2W_, fc2B_;
    std::vector<float> featMean_, featStd_;
};

} // namespace tavorin
