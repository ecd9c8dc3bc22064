#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <random>

#include <nlohmann/json.hpp>

#include "speech/BARTG2P.hpp"
#include "speech/EnglishG2P.hpp"
#include "speech/NeuralReranker.hpp"
#include "speech/PhonemeTrigramLM.hpp"
#include "speech/SafetensorsLoader.hpp"
#include "speech/Utf8.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

struct Tensor {
    std::vector<std::int64_t> shape;
    std::vector<float> values;
};

std::vector<char> withHeader(const std::string& header, const std::vector<char>& data, std::uint64_t length = ~0ull);

std::vector<char> safetensors(const std::map<std::string, Tensor>& tensors, const nlohmann::json& metadata = nullptr) {
    nlohmann::json header = nlohmann::json::object();
    std::vector<char> data;
    for (const auto& [name, t] : tensors) {
        header[name] = {{"dtype", "F32"}, {"shape", t.shape}, {"data_offsets", {data.size(), data.size() + 4 * t.values.size()}}};
        for (float v : t.values) {
            std::uint32_t bits;
            std::memcpy(&bits, &v, 4);
            for (int b = 0; b < 4; ++b) data.push_back(static_cast<char>((bits >> (8 * b)) & 0xff));
        }
    }
    if (!metadata.is_null()) header["__metadata__"] = metadata;
    return withHeader(header.dump(), data);
}

std::vector<char> withHeader(const std::string& header, const std::vector<char>& data, std::uint64_t length) {
    if (length == ~0ull) length = header.size();
    std::vector<char> out;
    for (int b = 0; b < 8; ++b) out.push_back(static_cast<char>((length >> (8 * b)) & 0xff));
    out.insert(out.end(), header.begin(), header.end());
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

std::string loadError(std::vector<char> bytes) {
    try {
        SafetensorsLoader loader(std::move(bytes));
        for (const auto& [name, info] : loader.tensors()) loader.floats(name);
    } catch (const BARTG2PError& e) {
        return e.what();
    }
    return "";
}

fs::path tempDir(const std::string& name) {
    auto dir = fs::temp_directory_path() / ("tavorin-bart-" + name + "-" + std::to_string(::getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}

void writeFile(const fs::path& p, const std::string& text) { std::ofstream(p, std::ios::binary) << text; }

// A copy of the shipped model in a folder of its own, for tests that change its resources.
fs::path modelCopy(const std::string& name) {
    const auto dir = tempDir(name);
    for (const char* f : {"bart_g2p.safetensors", "bart_g2p_config.json"}) fs::copy_file(speechDataDirectory() / f, dir / f);
    return dir;
}

BARTG2P& shipped() {
    static const auto model = BARTG2P::fromBundle();
    if (!model) throw std::runtime_error("The shipped model didn't load.");
    return *model;
}

} // namespace

TEST(SafetensorsLoader, ReadsTensorsAndMetadata) {
    const auto bytes = safetensors({{"a", {{2, 2}, {1, -2.5f, 3e-8f, 4}}}, {"b", {{1}, {7}}}, {"empty", {{0}, {}}}},
                                   {{"chars", "ab"}});
    SafetensorsLoader loader(bytes);
    EXPECT_EQ(loader.floats("a"), (std::vector<float>{1, -2.5f, 3e-8f, 4}));
    EXPECT_EQ(loader.floats("b", {1}), std::vector<float>{7});
    EXPECT_TRUE(loader.floats("empty").empty());
    EXPECT_EQ(loader.metadata().at("chars"), "ab");
    EXPECT_EQ(loader.info("a").shape, (std::vector<std::int64_t>{2, 2}));
    EXPECT_FALSE(loader.has("__metadata__"));
    try {
        loader.floats("c");
        FAIL();
    } catch (const BARTG2PError& e) {
        EXPECT_STREQ(e.what(), "Missing tensor: c");
    }
}

TEST(SafetensorsLoader, RefusesBrokenFilesWithTheirReason) {
    const std::vector<char> four(4, 0);
    EXPECT_EQ(loadError({}), "Invalid safetensors file: File is too short");
    EXPECT_EQ(loadError({'\x02', 0, 0}), "Invalid safetensors file: File is too short");
    EXPECT_EQ(loadError(withHeader("{}", {}, 3)), "Invalid safetensors file: Header exceeds file size");
    EXPECT_EQ(loadError(withHeader("{}", {}, ~0ull - 1)), "Invalid safetensors file: Header exceeds file size");
    EXPECT_EQ(loadError(withHeader("{\"a\":", {})), "Invalid safetensors file: Invalid header JSON");
    EXPECT_EQ(loadError(withHeader("[1,2]", {})), "Invalid safetensors file: Invalid header JSON");
    EXPECT_EQ(loadError(withHeader(R"({"a":{"dtype":"F32","shape":[1],"data_offsets":[0,8]}})", four)),
              "Invalid safetensors file: Tensor a has data offsets outside the file");
    EXPECT_EQ(loadError(withHeader(R"({"a":{"dtype":"F32","shape":[1],"data_offsets":[4,0]}})", four)),
              "Invalid safetensors file: Tensor a has data offsets outside the file");
    EXPECT_EQ(loadError(withHeader(R"({"a":{"dtype":"F32","shape":[2],"data_offsets":[0,4]}})", four)),
              "Invalid safetensors file: Tensor a has 4 bytes for shape [2]");
    EXPECT_EQ(loadError(withHeader(R"({"a":{"dtype":"F32","shape":[4294967296,4294967296],"data_offsets":[0,4]}})", four)),
              "Invalid safetensors file: Tensor a is larger than the file");
    EXPECT_EQ(loadError(withHeader(R"({"a":{"dtype":"F32","shape":[-1],"data_offsets":[0,4]}})", four)),
              "Invalid safetensors file: Tensor a has an invalid shape");
    EXPECT_EQ(loadError(withHeader(R"({"a":{"dtype":"F32","shape":[1]}})", four)),
              "Invalid safetensors file: Tensor a has no valid data offsets");
    EXPECT_EQ(loadError(withHeader(R"({"a":{"dtype":"F16","shape":[2],"data_offsets":[0,4]}})", four)),
              "Invalid safetensors file: Tensor a is F16, not 32-bit floats");
    const std::vector<char> eight(8, 0);
    EXPECT_EQ(loadError(withHeader(R"({"a":{"dtype":"F32","shape":[1],"data_offsets":[0,4]},)"
                                   R"("b":{"dtype":"F32","shape":[1],"data_offsets":[2,6]}})",
                                   eight)),
              "Invalid safetensors file: Tensors a and b overlap");
    // Truncating a good file anywhere is refused, never read past.
    const auto good = safetensors({{"a", {{3}, {1, 2, 3}}}});
    for (std::size_t n = 0; n < good.size(); ++n)
        EXPECT_FALSE(loadError({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(n)}).empty()) << n;
    SafetensorsLoader loader(good);
    EXPECT_THROW(loader.floats("a", {1, 3}), BARTG2PError);
}

TEST(BARTG2P, AgreesWithTheModelItWasExportedFrom) {
    std::ifstream in(speechDataDirectory() / "bart_g2p_parity.json");
    ASSERT_TRUE(in);
    const auto parity = nlohmann::json::parse(in);
    ASSERT_FALSE(parity.empty());
    for (const auto& item : parity) {
        const auto word = item["word"].get<std::string>(), phonemes = item["phonemes"].get<std::string>();
        const auto logits = shipped().teacherForcedLogits(word, phonemes);
        const auto& want = item["logits"];
        ASSERT_EQ(logits.size(), want.size()) << word;
        double worst = 0;
        for (std::size_t s = 0; s < logits.size(); ++s) {
            ASSERT_EQ(logits[s].size(), want[s].size());
            for (std::size_t i = 0; i < logits[s].size(); ++i)
                worst = std::max(worst, std::abs(static_cast<double>(logits[s][i]) - want[s][i].get<double>()));
        }
        EXPECT_LT(worst, 1e-4) << word;
        EXPECT_EQ(shipped().predict(word, 1, 0, false), phonemes) << word;
    }
}

TEST(BARTG2P, DecodesGreedilyByBeamAndWithRescoring) {
    auto& m = shipped();
    EXPECT_EQ(m.predict("ʘ∂", 1, 0, false), std::nullopt);
    EXPECT_EQ(m.predictWithLMRescore("ʘ∂"), std::nullopt);
    EXPECT_TRUE(m.predictNBest("", 4, 0, 0).empty());
    // Characters outside the vocabulary are dropped; case is not the model's business.
    EXPECT_EQ(m.predict("zorblax", 1, 0, false), m.predict("zor-bl∂ax", 1, 0, false));
    const auto scored = m.predictNBestScored("photosynthesis", 6, 0, 1.5f);
    ASSERT_GE(scored.size(), 2u);
    for (std::size_t i = 1; i < scored.size(); ++i) {
        EXPECT_GE(scored[i - 1].second, scored[i].second);
        for (std::size_t j = 0; j < i; ++j) EXPECT_NE(scored[i].first, scored[j].first);
    }
    EXPECT_LE(scored.front().second, 0.0f);
    const auto plain = m.predictNBest("photosynthesis", 6, 0, 0);
    ASSERT_FALSE(plain.empty());
    EXPECT_EQ(m.predict("photosynthesis", 6, 0, false), plain.front());
    // A length penalty only reorders candidates of different lengths; the answer stays one of them.
    EXPECT_TRUE(m.predict("photosynthesis", 6, 1.0f, false).has_value());
    // Ten thousand characters are cut to the model's input, and the decoder stops by itself.
    const auto huge = m.predict(std::string(10000, 'q') + "ing", 1, 0, false);
    ASSERT_TRUE(huge.has_value());
    EXPECT_LE(utf8::decode(*huge).size(), 50u);
    EXPECT_TRUE(m.predictWithLMRescore(std::string(10000, 'a')).has_value());
}

TEST(BARTG2P, OverridesWinAndResourcesAreOptional) {
    const auto dir = modelCopy("overrides");
    writeFile(dir / "tech_overrides.json", R"({"Kubectl": "kˈubkˌʌntɹˌOl", "ʘ": "klˈIk"})");
    BARTG2P model(dir / "bart_g2p.safetensors", dir / "bart_g2p_config.json");
    // An override never needs the network: this word has no character the network reads.
    EXPECT_EQ(model.predict("ʘ", 1, 0, false), "klˈIk");
    EXPECT_EQ(model.predict("KUBECTL", 4, 0, true), "kˈubkˌʌntɹˌOl");
    EXPECT_EQ(model.predictWithLMRescore("kubectl"), "kˈubkˌʌntɹˌOl");
    // Without the language model and reranker, the rescored answer is still one of the beam's.
    EXPECT_EQ(model.trigramScore("kæt"), 0.0);
    EXPECT_EQ(model.reranker(), nullptr);
    const auto answer = model.predictWithLMRescore("zorblax");
    ASSERT_TRUE(answer.has_value());
    const auto four = model.predictNBest("zorblax", 4, 0, 1.5f);
    EXPECT_NE(std::find(four.begin(), four.end(), *answer), four.end());
    // A reranker that won't load is not tried again, and the answer goes on without it.
    writeFile(dir / "reranker.safetensors", "broken");
    BARTG2P again(dir / "bart_g2p.safetensors", dir / "bart_g2p_config.json");
    EXPECT_EQ(again.reranker(), nullptr);
    fs::copy_file(speechDataDirectory() / "bart_g2p.safetensors", dir / "reranker.safetensors",
                  fs::copy_options::overwrite_existing);
    EXPECT_EQ(again.reranker(), nullptr);
    EXPECT_EQ(again.predictWithLMRescore("zorblax"), answer);
    fs::remove_all(dir);
}

TEST(BARTG2P, AMissingTensorFailsTheWholeLoad) {
    const auto dir = modelCopy("missing");
    SafetensorsLoader full(dir / "bart_g2p.safetensors");
    std::map<std::string, Tensor> tensors;
    for (const auto& [name, info] : full.tensors())
        if (name != "model.decoder.layers.0.fc2.bias") tensors[name] = {info.shape, full.floats(name)};
    const auto bytes = safetensors(tensors);
    std::ofstream(dir / "bart_g2p.safetensors", std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    try {
        BARTG2P model(dir / "bart_g2p.safetensors", dir / "bart_g2p_config.json");
        FAIL();
    } catch (const BARTG2PError& e) {
        EXPECT_STREQ(e.what(), "Missing tensor: model.decoder.layers.0.fc2.bias");
    }
    EXPECT_EQ(BARTG2P::fromBundle(dir), nullptr);
    // The phonemiser runs on without the model: an unknown word is spelled.
    fs::copy_file(speechDataDirectory() / "tagger.txt", dir / "tagger.txt");
    fs::copy_file(speechDataDirectory() / "us_gold.json", dir / "us_gold.json");
    fs::copy_file(speechDataDirectory() / "us_silver.json", dir / "us_silver.json");
    EnglishG2P g2p(false, "❓", nullptr, dir);
    EXPECT_EQ(g2p.phonemize("qxzjv"), "kjˌuˌɛkszˌiʤˌAvˈi");
    EXPECT_EQ(BARTG2P::fromBundle(tempDir("empty")), nullptr);
    fs::remove_all(dir);
}

TEST(BARTG2P, ThePhonemiserAsksItForUnknownWords) {
    EnglishG2P g2p(false);
    auto [text, tokens] = g2p.phonemize("zorblax", true);
    ASSERT_EQ(tokens.size(), 1u);
    EXPECT_EQ(tokens[0].meta.rating, 2);
    EXPECT_EQ(text, shipped().predict("zorblax"));
    // Technical words the dictionary lacks come from the hand-written list.
    auto [k, kt] = g2p.phonemize("kubectl", true);
    EXPECT_EQ(k, shipped().lookupOverride("kubectl"));
}

TEST(BARTG2P, EditDistanceCountsPhonemesNotBytes) {
    EXPECT_EQ(BARTG2P::phonemeEditDistance("", ""), 0);
    EXPECT_EQ(BARTG2P::phonemeEditDistance("ʃˈɪp", ""), 4);
    EXPECT_EQ(BARTG2P::phonemeEditDistance("ʃˈɪp", "ʃˈɪps"), 1);
    EXPECT_EQ(BARTG2P::phonemeEditDistance("ʃˈɪp", "sˈɪp"), 1);
    EXPECT_EQ(BARTG2P::phonemeEditDistance("kˈæt", "ˈækt"), 2);
}

TEST(PhonemeTrigramLM, SmoothedMeanLogProbability) {
    const auto lm = PhonemeTrigramLM::fromText("vocab 4\n^ k æ 3\n^ k ɪ 1\nk æ t 4\n");
    EXPECT_EQ(lm.vocabSize(), 4);
    EXPECT_EQ(lm.logProb(""), 0.0);
    EXPECT_EQ(lm.logProb("k"), 0.0);
    EXPECT_EQ(lm.logProb("ˈk"), 0.0);  // marks don't count as phonemes
    EXPECT_NEAR(lm.logProb("kæ"), std::log(4.0 / 8.0), 1e-12);
    EXPECT_NEAR(lm.logProb("kˈæt"), (std::log(4.0 / 8.0) + std::log(5.0 / 8.0)) / 2, 1e-12);
    // Unseen contexts and trigrams keep a finite probability.
    EXPECT_NEAR(lm.logProb("zq"), std::log(1.0 / 4.0), 1e-12);
    EXPECT_TRUE(std::isfinite(lm.logProb("kɪt")));
    EXPECT_GT(lm.logProb("kæt"), lm.logProb("kɪt"));
    EXPECT_THROW(PhonemeTrigramLM::fromText("^ k æ 3\n"), std::runtime_error);
    EXPECT_THROW(PhonemeTrigramLM::fromText("vocab 4\n^ k 3\n"), std::runtime_error);
    EXPECT_THROW(PhonemeTrigramLM::fromText("vocab 4\n^ kk æ 3\n"), std::runtime_error);
}

TEST(NeuralReranker, FoldsBatchNormAndNormalisesItsFeatures) {
    // Convolutions that pass nothing, a first layer that reads only the two score features:
    // the score is then relu((lp - 1) / 2) + 3 * relu((tri + 4) / 0.5) + 0.25.
    const int E = NeuralReranker::kEmbed, C = NeuralReranker::kChannels, K = NeuralReranker::kKernel,
              H = NeuralReranker::kHidden;
    const auto zeros = [](std::size_t n) { return std::vector<float>(n, 0.0f); };
    const auto ones = [](std::size_t n) { return std::vector<float>(n, 1.0f); };
    std::vector<float> fc1 = zeros(static_cast<std::size_t>(H * (C + 2)));
    fc1[static_cast<std::size_t>(C)] = 1;
    fc1[static_cast<std::size_t>(C + 2 + C + 1)] = 1;
    std::vector<float> fc2 = zeros(static_cast<std::size_t>(H));
    fc2[0] = 1;
    fc2[1] = 3;
    const auto u = [](int n) { return static_cast<std::size_t>(n); };
    std::map<std::string, Tensor> t{
        {"char_embed.weight", {{3, E}, ones(u(3 * E))}}, {"type_embed.weight", {{2, E}, ones(u(2 * E))}},
        {"conv1.weight", {{C, E, K}, zeros(u(C * E * K))}}, {"conv1.bias", {{C}, zeros(u(C))}},
        {"conv2.weight", {{C, C, K}, zeros(u(C * C * K))}}, {"conv2.bias", {{C}, zeros(u(C))}},
        {"fc1.weight", {{H, C + 2}, fc1}}, {"fc1.bias", {{H}, zeros(u(H))}},
        {"fc2.weight", {{1, H}, fc2}}, {"fc2.bias", {{1}, {0.25f}}},
        {"feat_mean", {{2}, {1, -4}}}, {"feat_std", {{2}, {2, 0.5f}}}};
    for (const char* bn : {"bn1", "bn2"}) {
        t[std::string(bn) + ".weight"] = {{C}, ones(u(C))};
        t[std::string(bn) + ".bias"] = {{C}, zeros(u(C))};
        t[std::string(bn) + ".running_mean"] = {{C}, zeros(u(C))};
        t[std::string(bn) + ".running_var"] = {{C}, ones(u(C))};
    }
    const NeuralReranker r(SafetensorsLoader(safetensors(t, {{"chars", "ab"}})));
    EXPECT_NEAR(r.score("ab", "æb", 5, -3.5f), 2.0f + 3 * 1.0f + 0.25f, 1e-5);
    EXPECT_NEAR(r.score("", "", -1, -5), 0.25f, 1e-5);
    EXPECT_GT(r.score("ab", "x", 3, -3), r.score("ab", "x", 2, -3));
    // A long pair is cut, never read past.
    EXPECT_TRUE(std::isfinite(r.score(std::string(10000, 'a'), std::string(10000, 'b'), 0, 0)));
    // A batch-norm shift reaches the pooled features through the ReLU.
    t["bn2.bias"] = {{C}, ones(u(C))};
    std::vector<float> fc1b = fc1;
    fc1b[0] = 1;
    t["fc1.weight"] = {{H, C + 2}, fc1b};
    const NeuralReranker shifted(SafetensorsLoader(safetensors(t, {{"chars", "ab"}})));
    EXPECT_NEAR(shifted.score("ab", "æb", 5, -3.5f), 3.0f + 3 * 1.0f + 0.25f, 1e-5);
    t.erase("feat_std");
    EXPECT_THROW(NeuralReranker(SafetensorsLoader(safetensors(t, {{"chars", "ab"}}))), BARTG2PError);
}

TEST(NeuralReranker, AgreesWithTheNetworkItWasExportedFrom) {
    std::ifstream in(speechDataDirectory() / "reranker_parity.json");
    ASSERT_TRUE(in);
    const auto parity = nlohmann::json::parse(in);
    ASSERT_FALSE(parity.empty());
    const NeuralReranker r(speechDataDirectory() / "reranker.safetensors");
    for (const auto& e : parity)
        EXPECT_NEAR(r.score(e["word"].get<std::string>(), e["candidate"].get<std::string>(),
                            e["model_log_prob"].get<float>(), e["trigram_log_prob"].get<float>()),
                    e["score"].get<double>(), 1e-4)
            << e["word"] << " " << e["candidate"];
    EXPECT_NE(shipped().reranker(), nullptr);
}
