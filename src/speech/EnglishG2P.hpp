#pragma once
// English text to the phoneme string the speech model reads: normalise, tag, split tokens
// into sub-tokens, look each up (walking from the end, since a word's reading can depend
// on the next one), and fall back on spelling or a model for unknown words.
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "speech/G2PModel.hpp"
#include "speech/Lexicon.hpp"
#include "speech/MToken.hpp"
#include "speech/Phonemizer.hpp"

namespace tavorin {

class PosTagger;

class EnglishG2P : public Phonemizer {
public:
    struct PreprocessFeature {
        std::variant<long long, double, std::string> value;
        TokenRange tokenRange;
    };
    using RetokenizedItem = std::variant<MToken, std::vector<MToken>>;  // single or compound

    // Without a model given, the trained one in the data folder is used when it loads.
    explicit EnglishG2P(bool british = false, std::string unk = "❓", std::shared_ptr<G2PModel> bart = nullptr,
                        const std::filesystem::path& dataDirectory = speechDataDirectory());
    ~EnglishG2P() override;

    std::string phonemize(const std::string& text) override { return phonemize(text, true).first; }
    std::pair<std::string, std::vector<MToken>> phonemize(const std::string& text, bool performPreprocess);

    // Plugs in (or removes) the guesser for unknown words.
    void setModel(std::shared_ptr<G2PModel> model) { bart_ = std::move(model); }
    const Lexicon& lexicon() const { return lexicon_; }
    bool british() const { return british_; }

    struct Preprocessed {
        std::string text;
        std::vector<std::string> tokens;
        std::vector<PreprocessFeature> features;
    };
    static Preprocessed preprocess(const std::string& text);
    std::vector<MToken> tokenize(const std::string& text, const std::vector<PreprocessFeature>& features) const;
    static std::vector<MToken> foldLeft(std::vector<MToken> tokens);
    std::vector<RetokenizedItem> retokenize(std::vector<MToken> tokens) const;
    static MToken mergeTokens(const std::vector<MToken>& tokens, const std::optional<std::string>& unk = std::nullopt);
    static TokenContext tokenContext(const TokenContext& ctx, const std::optional<std::string>& phonemes, const MToken& token);
    static int stressWeight(const std::optional<std::string>& phonemes);
    std::string pennTag(std::optional<LexicalClass> tag, const MToken& token) const;

private:
    std::pair<std::string, int> fallback(const MToken& token);
    std::pair<std::string, int> resolvePart(const std::string& word);
    void resolveTokens(std::vector<MToken>& list) const;
    std::vector<std::string> subtokenize(const std::string& text) const;

    bool british_;
    std::string unk_;
    std::unique_ptr<PosTagger> tagger_;
    Lexicon lexicon_;
    std::shared_ptr<G2PModel> bart_;
    struct Regexes;
    std::unique_ptr<Regexes> regexes_;
};

} // namespace tavorin
