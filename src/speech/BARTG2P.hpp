#pragma once
// Guesses the phonemes of a word no dictionary holds: a one-layer encoder-decoder
// transformer over characters, trained by tools/train_g2p.py and run here with BLAS.
// The optional scorers (a phoneme trigram model and a neural reranker) choose among its
// beam's candidates; fixed readings of technical words come before either.
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "speech/G2PModel.hpp"
#include "speech/Lexicon.hpp"
#include "speech/NeuralReranker.hpp"
#include "speech/PhonemeTrigramLM.hpp"
#include "speech/SafetensorsLoader.hpp"

namespace tavorin {

class BARTG2P : public G2PModel {
public:
    struct Beam {
        std::vector<int> tokens;
        float logProb = 0;
        std::vector<float> saKCache, saVCache;
        bool finished = false;
    };

    // The model from the speech data folder, or nothing when its weights or configuration
    // are missing or don't load.
    static std::shared_ptr<BARTG2P> fromBundle(const std::filesystem::path& directory = speechDataDirectory());
    // The optional resources are looked for beside the weights.
    BARTG2P(const std::filesystem::path& weightsURL, const std::filesystem::path& configURL);

    std::optional<std::string> predict(const std::string& word) override {
        return predict(word, defaultBeamWidth_, defaultLengthPenalty_, defaultRescore_);
    }
    std::optional<std::string> predict(const std::string& text, int beamWidth, float lengthPenalty, bool rescoreLM);
    std::vector<std::string> predictNBest(const std::string& text, int beamWidth, float lengthPenalty,
                                          float diversityPenalty);
    std::vector<std::pair<std::string, float>> predictNBestScored(const std::string& text, int beamWidth,
                                                                  float lengthPenalty, float diversityPenalty);
    std::optional<std::string> predictWithLMRescore(const std::string& text);
    std::optional<std::string> lookupOverride(const std::string& text);

    double trigramScore(const std::string& phonemes);
    const NeuralReranker* reranker();

    // The logits the decoder gives at each step when fed these phonemes after the start
    // token: what the exporting side's numbers are checked against.
    std::vector<std::vector<float>> teacherForcedLogits(const std::string& word, const std::string& phonemes);

    static int phonemeEditDistance(const std::string& a, const std::string& b);

    int vocabularySize() const { return vocab_; }
    int outputSize() const { return nOut_; }

private:
    struct Encoded {
        std::vector<float> cK, cV;
        int length = 0;
    };
    std::vector<int> inputIds(const std::string& text) const;
    Encoded encode(const std::vector<int>& ids) const;
    // One step for several beams at the same position: rows of `tokens`, each with its own caches.
    std::vector<float> decoderStep(const std::vector<int>& tokens, int pos, std::vector<Beam*>& beams,
                                   const Encoded& enc) const;
    std::vector<int> decodeGreedy(const Encoded& enc) const;
    std::vector<Beam> beamSearchCore(const Encoded& enc, int beamWidth, float lengthPenalty,
                                     float diversityPenalty) const;
    void logSoftmax(float* row) const;
    std::string toPhonemes(const std::vector<int>& tokens) const;
    void loadOverrides();

    std::unordered_map<char32_t, int> graphemeToId_;
    std::map<int, std::string> idToPhoneme_;
    std::optional<std::unordered_map<std::string, std::string>> overrides_;
    bool overridesChecked_ = false;
    std::optional<PhonemeTrigramLM> trigramLM_;
    bool trigramChecked_ = false;
    std::optional<NeuralReranker> reranker_;
    bool rerankerChecked_ = false;
    std::filesystem::path directory_;

    int vocab_ = 0, nOut_ = 0, heads_ = 4, maxInput_ = 64;
    int padId_ = 0, startId_ = 1, endId_ = 2;
    int defaultBeamWidth_ = 1;
    float defaultLengthPenalty_ = 0;
    bool defaultRescore_ = false;

    std::vector<float> sharedW, logitBias, ePosW, eLnEW, eLnEB;
    std::vector<float> eQW, eQB, eKW, eKB, eVW, eVB, eOW, eOB, eSaLnW, eSaLnB;
    std::vector<float> eF1W, eF1B, eF2W, eF2B, eFLnW, eFLnB;
    std::vector<float> dPosW, dLnEW, dLnEB;
    std::vector<float> dSQW, dSQB, dSKW, dSKB, dSVW, dSVB, dSOW, dSOB, dSaLnW, dSaLnB;
    std::vector<float> dCQW, dCQB, dCKW, dCKB, dCVW, dCVB, dCOW, dCOB, dCaLnW, dCaLnB;
    std::vector<float> dF1W, dF1B, dF2W, dF2B, dFLnW, dFLnB;
    int maxPositions_ = 0;
};

} // namespace tavorin
