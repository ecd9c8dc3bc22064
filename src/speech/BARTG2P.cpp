#include "speech/BARTG2P.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <numeric>

#include <cblas.h>
#include <nlohmann/json.hpp>

#include "speech/TextCase.hpp"
#include "speech/Utf8.hpp"

namespace tavorin {

namespace {

constexpr int kMaxSteps = 50;
constexpr int kPositionOffset = 2;  // learned positions begin at row 2, as the trainer lays them out

std::size_t sz(int n) { return static_cast<std::size_t>(n); }

// Y (rows x out) = X (rows x in) W^T + b, W as stored by the trainer (out x in).
void linear(const float* x, int rows, int in, const std::vector<float>& w, const std::vector<float>& b, int out, float* y) {
    for (int r = 0; r < rows; ++r) std::copy(b.begin(), b.end(), y + sz(r) * sz(out));
    if (rows == 1)
        cblas_sgemv(CblasRowMajor, CblasNoTrans, out, in, 1.0f, w.data(), in, x, 1, 1.0f, y, 1);
    else
        cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasTrans, rows, out, in, 1.0f, x, in, w.data(), in, 1.0f, y, out);
}

void layerNorm(float* x, int rows, int d, const std::vector<float>& w, const std::vector<float>& b) {
    for (int r = 0; r < rows; ++r) {
        float* v = x + sz(r) * sz(d);
        float mean = 0;
        for (int i = 0; i < d; ++i) mean += v[i];
        mean /= static_cast<float>(d);
        float var = 0;
        for (int i = 0; i < d; ++i) var += (v[i] - mean) * (v[i] - mean);
        var /= static_cast<float>(d);
        const float inv = 1.0f / std::sqrt(var + 1e-5f);
        for (int i = 0; i < d; ++i) v[i] = (v[i] - mean) * inv * w[sz(i)] + b[sz(i)];
    }
}

void addInto(float* x, const float* y, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) x[i] += y[i];
}

void gelu(std::vector<float>& x) {
    for (auto& v : x) v = 0.5f * v * (1.0f + std::erf(v * 0.70710678118654752f));
}

void softmaxRow(float* s, int n) {
    float m = -std::numeric_limits<float>::infinity();
    for (int i = 0; i < n; ++i) m = std::max(m, s[i]);
    float sum = 0;
    for (int i = 0; i < n; ++i) {
        s[i] = std::exp(s[i] - m);
        sum += s[i];
    }
    for (int i = 0; i < n; ++i) s[i] /= sum;
}

// Multi-head attention of Tq queries over Tk keys; all matrices row-major with D columns.
void attend(const float* q, int tq, const float* k, const float* v, int tk, int d, int heads, float* out) {
    const int hd = d / heads;
    const float scale = 1.0f / std::sqrt(static_cast<float>(hd));
    std::vector<float> scores(sz(tq) * sz(tk));
    for (int h = 0; h < heads; ++h) {
        cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasTrans, tq, tk, hd, scale, q + h * hd, d, k + h * hd, d, 0.0f,
                    scores.data(), tk);
        for (int r = 0; r < tq; ++r) softmaxRow(scores.data() + sz(r) * sz(tk), tk);
        cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, tq, hd, tk, 1.0f, scores.data(), tk, v + h * hd, d, 0.0f,
                    out + h * hd, d);
    }
}

std::string readFile(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    if (!in) throw BARTG2PError("The file " + p.string() + " can't be read.");
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace

std::shared_ptr<BARTG2P> BARTG2P::fromBundle(const std::filesystem::path& directory) {
    const auto weights = directory / "bart_g2p.safetensors", config = directory / "bart_g2p_config.json";
    std::error_code ec;
    if (!std::filesystem::exists(weights, ec) || !std::filesystem::exists(config, ec)) return nullptr;
    try {
        return std::make_shared<BARTG2P>(weights, config);
    } catch (const std::exception&) {
        return nullptr;  // the phonemiser carries on without a model
    }
}

BARTG2P::BARTG2P(const std::filesystem::path& weightsURL, const std::filesystem::path& configURL)
    : directory_(weightsURL.parent_path()) {
    const auto config = nlohmann::json::parse(readFile(configURL), nullptr, false);
    if (config.is_discarded() || !config.is_object() || !config.contains("grapheme_chars") ||
        !config.contains("phoneme_chars") || !config["grapheme_chars"].is_array() || !config["phoneme_chars"].is_array())
        throw BARTG2PError("The model's configuration " + configURL.string() + " is not valid.");
    const auto intOr = [&](const char* key, int fallback) {
        return config.contains(key) && config[key].is_number_integer() ? config[key].get<int>() : fallback;
    };
    padId_ = intOr("pad_token_id", 0);
    startId_ = intOr("decoder_start_token_id", 1);
    endId_ = intOr("eos_token_id", 2);
    heads_ = intOr("num_heads", 4);
    maxInput_ = std::max(1, intOr("max_input", 64));
    defaultBeamWidth_ = std::max(1, intOr("beam_width", 1));
    if (config.contains("length_penalty") && config["length_penalty"].is_number())
        defaultLengthPenalty_ = config["length_penalty"].get<float>();
    if (config.contains("rescore_lm") && config["rescore_lm"].is_boolean()) defaultRescore_ = config["rescore_lm"].get<bool>();

    // Entries of one character are letters or phonemes; longer ones name special tokens.
    const auto& graphemes = config["grapheme_chars"];
    for (std::size_t i = 0; i < graphemes.size(); ++i)
        if (graphemes[i].is_string())
            if (auto u = utf8::decode(graphemes[i].get<std::string>()); u.size() == 1)
                graphemeToId_.emplace(u[0], static_cast<int>(i));
    const auto& phonemes = config["phoneme_chars"];
    for (std::size_t i = 0; i < phonemes.size(); ++i)
        if (phonemes[i].is_string())
            if (auto s = phonemes[i].get<std::string>(); utf8::decode(s).size() == 1) idToPhoneme_.emplace(static_cast<int>(i), s);
    nOut_ = static_cast<int>(phonemes.size());

    const SafetensorsLoader w(weightsURL);
    const auto& shared = w.info("model.shared.weight");
    if (shared.shape.size() != 2 || shared.shape[0] < nOut_ || shared.shape[1] <= 0 || shared.shape[1] % heads_ != 0)
        throw BARTG2PError::invalidSafetensors("Tensor model.shared.weight has an unexpected shape");
    vocab_ = static_cast<int>(shared.shape[0]);
    const std::int64_t d = shared.shape[1];
    for (const auto& [c, id] : graphemeToId_)
        if (id >= vocab_) throw BARTG2PError("The model's configuration names more letters than it has embeddings.");
    for (int id : {padId_, startId_, endId_})
        if (id < 0 || id >= nOut_) throw BARTG2PError("The model's configuration has special tokens outside its vocabulary.");
    const auto& fc1 = w.info("model.encoder.layers.0.fc1.weight");
    if (fc1.shape.size() != 2 || fc1.shape[0] <= 0)
        throw BARTG2PError::invalidSafetensors("Tensor model.encoder.layers.0.fc1.weight has an unexpected shape");
    const std::int64_t ffn = fc1.shape[0];
    const auto& pos = w.info("model.encoder.embed_positions.weight");
    if (pos.shape.size() != 2 || pos.shape[0] < maxInput_ + kPositionOffset)
        throw BARTG2PError::invalidSafetensors("Tensor model.encoder.embed_positions.weight has too few positions");
    maxPositions_ = static_cast<int>(pos.shape[0]);

    sharedW = w.floats("model.shared.weight", {vocab_, d});
    logitBias = w.floats("final_logits_bias", {1, nOut_});
    ePosW = w.floats("model.encoder.embed_positions.weight", {maxPositions_, d});
    dPosW = w.floats("model.decoder.embed_positions.weight", {maxPositions_, d});
    const auto vec = [&](const std::string& n) { return w.floats(n, {d}); };
    const auto mat = [&](const std::string& n, std::int64_t rows, std::int64_t cols) { return w.floats(n, {rows, cols}); };
    const auto attn = [&](const std::string& p, std::vector<float>* out) {
        const char* names[] = {"q_proj", "k_proj", "v_proj", "out_proj"};
        for (int i = 0; i < 4; ++i) {
            out[2 * i] = mat(p + names[i] + ".weight", d, d);
            out[2 * i + 1] = vec(p + names[i] + ".bias");
        }
    };
    eLnEW = vec("model.encoder.layernorm_embedding.weight");
    eLnEB = vec("model.encoder.layernorm_embedding.bias");
    {
        std::vector<float> a[8];
        attn("model.encoder.layers.0.self_attn.", a);
        eQW = a[0], eQB = a[1], eKW = a[2], eKB = a[3], eVW = a[4], eVB = a[5], eOW = a[6], eOB = a[7];
    }
    const std::string el = "model.encoder.layers.0.", dl = "model.decoder.layers.0.";
    eSaLnW = vec(el + "self_attn_layer_norm.weight");
    eSaLnB = vec(el + "self_attn_layer_norm.bias");
    eF1W = mat(el + "fc1.weight", ffn, d);
    eF1B = w.floats(el + "fc1.bias", {ffn});
    eF2W = mat(el + "fc2.weight", d, ffn);
    eF2B = vec(el + "fc2.bias");
    eFLnW = vec(el + "final_layer_norm.weight");
    eFLnB = vec(el + "final_layer_norm.bias");
    dLnEW = vec("model.decoder.layernorm_embedding.weight");
    dLnEB = vec("model.decoder.layernorm_embedding.bias");
    {
        std::vector<float> a[8];
        attn(dl + "self_attn.", a);
        dSQW = a[0], dSQB = a[1], dSKW = a[2], dSKB = a[3], dSVW = a[4], dSVB = a[5], dSOW = a[6], dSOB = a[7];
        attn(dl + "encoder_attn.", a);
        dCQW = a[0], dCQB = a[1], dCKW = a[2], dCKB = a[3], dCVW = a[4], dCVB = a[5], dCOW = a[6], dCOB = a[7];
    }
    dSaLnW = vec(dl + "self_attn_layer_norm.weight");
    dSaLnB = vec(dl + "self_attn_layer_norm.bias");
    dCaLnW = vec(dl + "encoder_attn_layer_norm.weight");
    dCaLnB = vec(dl + "encoder_attn_layer_norm.bias");
    dF1W = mat(dl + "fc1.weight", ffn, d);
    dF1B = w.floats(dl + "fc1.bias", {ffn});
    dF2W = mat(dl + "fc2.weight", d, ffn);
    dF2B = vec(dl + "fc2.bias");
    dFLnW = vec(dl + "final_layer_norm.weight");
    dFLnB = vec(dl + "final_layer_norm.bias");
}

std::vector<int> BARTG2P::inputIds(const std::string& text) const {
    std::vector<int> ids;
    for (char32_t c : utf8::decode(text)) {
        if (auto it = graphemeToId_.find(c); it != graphemeToId_.end()) ids.push_back(it->second);
        if (ids.size() == sz(maxInput_)) break;
    }
    return ids;
}

BARTG2P::Encoded BARTG2P::encode(const std::vector<int>& ids) const {
    const int d = static_cast<int>(eLnEW.size()), ffn = static_cast<int>(eF1B.size());
    const int t = static_cast<int>(ids.size());
    std::vector<float> x(sz(t) * sz(d));
    for (int i = 0; i < t; ++i)
        for (int e = 0; e < d; ++e)
            x[sz(i * d + e)] = sharedW[sz(ids[sz(i)]) * sz(d) + sz(e)] + ePosW[sz(i + kPositionOffset) * sz(d) + sz(e)];
    layerNorm(x.data(), t, d, eLnEW, eLnEB);
    std::vector<float> q(x.size()), k(x.size()), v(x.size()), o(x.size()), proj(x.size());
    linear(x.data(), t, d, eQW, eQB, d, q.data());
    linear(x.data(), t, d, eKW, eKB, d, k.data());
    linear(x.data(), t, d, eVW, eVB, d, v.data());
    attend(q.data(), t, k.data(), v.data(), t, d, heads_, o.data());
    linear(o.data(), t, d, eOW, eOB, d, proj.data());
    addInto(x.data(), proj.data(), x.size());
    layerNorm(x.data(), t, d, eSaLnW, eSaLnB);
    std::vector<float> h(sz(t) * sz(ffn));
    linear(x.data(), t, d, eF1W, eF1B, ffn, h.data());
    gelu(h);
    linear(h.data(), t, ffn, eF2W, eF2B, d, proj.data());
    addInto(x.data(), proj.data(), x.size());
    layerNorm(x.data(), t, d, eFLnW, eFLnB);
    Encoded enc;
    enc.length = t;
    enc.cK.resize(x.size());
    enc.cV.resize(x.size());
    linear(x.data(), t, d, dCKW, dCKB, d, enc.cK.data());
    linear(x.data(), t, d, dCVW, dCVB, d, enc.cV.data());
    return enc;
}

std::vector<float> BARTG2P::decoderStep(const std::vector<int>& tokens, int pos, std::vector<Beam*>& beams,
                                        const Encoded& enc) const {
    const int d = static_cast<int>(eLnEW.size()), ffn = static_cast<int>(dF1B.size());
    const int b = static_cast<int>(tokens.size());
    std::vector<float> x(sz(b) * sz(d));
    for (int r = 0; r < b; ++r)
        for (int e = 0; e < d; ++e)
            x[sz(r * d + e)] = sharedW[sz(tokens[sz(r)]) * sz(d) + sz(e)] + dPosW[sz(pos + kPositionOffset) * sz(d) + sz(e)];
    layerNorm(x.data(), b, d, dLnEW, dLnEB);
    std::vector<float> q(x.size()), k(x.size()), v(x.size()), o(x.size()), proj(x.size());
    linear(x.data(), b, d, dSQW, dSQB, d, q.data());
    linear(x.data(), b, d, dSKW, dSKB, d, k.data());
    linear(x.data(), b, d, dSVW, dSVB, d, v.data());
    // Self-attention: each beam over its own history, which this step joins.
    const int hd = d / heads_;
    const float scale = 1.0f / std::sqrt(static_cast<float>(hd));
    std::vector<float> scores;
    for (int r = 0; r < b; ++r) {
        Beam& beam = *beams[sz(r)];
        beam.saKCache.insert(beam.saKCache.end(), k.begin() + r * d, k.begin() + (r + 1) * d);
        beam.saVCache.insert(beam.saVCache.end(), v.begin() + r * d, v.begin() + (r + 1) * d);
        const int len = static_cast<int>(beam.saKCache.size() / sz(d));
        scores.resize(sz(len));
        for (int h = 0; h < heads_; ++h) {
            cblas_sgemv(CblasRowMajor, CblasNoTrans, len, hd, scale, beam.saKCache.data() + h * hd, d,
                        q.data() + r * d + h * hd, 1, 0.0f, scores.data(), 1);
            softmaxRow(scores.data(), len);
            cblas_sgemv(CblasRowMajor, CblasTrans, len, hd, 1.0f, beam.saVCache.data() + h * hd, d, scores.data(), 1,
                        0.0f, o.data() + r * d + h * hd, 1);
        }
    }
    linear(o.data(), b, d, dSOW, dSOB, d, proj.data());
    addInto(x.data(), proj.data(), x.size());
    layerNorm(x.data(), b, d, dSaLnW, dSaLnB);
    // Cross-attention: every beam reads the same encoding, so all rows go in one product.
    linear(x.data(), b, d, dCQW, dCQB, d, q.data());
    attend(q.data(), b, enc.cK.data(), enc.cV.data(), enc.length, d, heads_, o.data());
    linear(o.data(), b, d, dCOW, dCOB, d, proj.data());
    addInto(x.data(), proj.data(), x.size());
    layerNorm(x.data(), b, d, dCaLnW, dCaLnB);
    std::vector<float> h(sz(b) * sz(ffn));
    linear(x.data(), b, d, dF1W, dF1B, ffn, h.data());
    gelu(h);
    linear(h.data(), b, ffn, dF2W, dF2B, d, proj.data());
    addInto(x.data(), proj.data(), x.size());
    layerNorm(x.data(), b, d, dFLnW, dFLnB);
    // Only the first rows of the shared embedding are answers the decoder may give.
    std::vector<float> logits(sz(b) * sz(nOut_));
    linear(x.data(), b, d, sharedW, logitBias, nOut_, logits.data());
    return logits;
}

void BARTG2P::logSoftmax(float* row) const {
    float m = -std::numeric_limits<float>::infinity();
    for (int i = 0; i < nOut_; ++i) m = std::max(m, row[i]);
    float sum = 0;
    for (int i = 0; i < nOut_; ++i) sum += std::exp(row[i] - m);
    const float lse = m + std::log(sum);
    for (int i = 0; i < nOut_; ++i) row[i] -= lse;
}

std::vector<int> BARTG2P::decodeGreedy(const Encoded& enc) const {
    Beam beam;
    std::vector<Beam*> beams{&beam};
    std::vector<int> out;
    int token = startId_;
    for (int step = 0; step < kMaxSteps && step + kPositionOffset < maxPositions_; ++step) {
        const auto logits = decoderStep({token}, step, beams, enc);
        token = static_cast<int>(std::max_element(logits.begin(), logits.end()) - logits.begin());
        if (token == endId_) break;
        out.push_back(token);
    }
    return out;
}

std::vector<BARTG2P::Beam> BARTG2P::beamSearchCore(const Encoded& enc, int beamWidth, float lengthPenalty,
                                                    float diversityPenalty) const {
    const auto score = [&](const Beam& b) {
        if (lengthPenalty == 0) return b.logProb;
        const auto n = static_cast<float>(std::max<std::size_t>(1, b.tokens.size() - 1));
        return b.logProb / std::pow(n, lengthPenalty);
    };
    const auto better = [&](const Beam& a, const Beam& b) { return score(a) > score(b); };
    std::vector<Beam> beams(1);
    beams[0].tokens = {startId_};
    for (int step = 0; step < kMaxSteps && step + kPositionOffset < maxPositions_; ++step) {
        std::vector<Beam*> open;
        std::vector<int> tokens;
        for (auto& b : beams)
            if (!b.finished) {
                open.push_back(&b);
                tokens.push_back(b.tokens.back());
            }
        if (open.empty()) break;
        auto logits = decoderStep(tokens, step, open, enc);
        std::vector<Beam> next;
        for (auto& b : beams)
            if (b.finished) next.push_back(std::move(b));
        std::vector<int> picked(sz(nOut_), 0);
        std::vector<int> order(sz(nOut_));
        std::vector<float> adjusted(sz(nOut_));
        for (std::size_t r = 0; r < open.size(); ++r) {
            float* row = logits.data() + r * sz(nOut_);
            logSoftmax(row);
            // Tokens earlier beams of this step chose cost this beam, which spreads the candidates.
            for (int t = 0; t < nOut_; ++t) adjusted[sz(t)] = row[t] - diversityPenalty * static_cast<float>(picked[sz(t)]);
            std::iota(order.begin(), order.end(), 0);
            const auto take = std::min<std::size_t>(sz(beamWidth), order.size());
            std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(take), order.end(),
                              [&](int a, int b) { return adjusted[sz(a)] > adjusted[sz(b)]; });
            for (std::size_t i = 0; i < take; ++i) {
                const int t = order[i];
                if (t == padId_ || t == startId_) continue;
                Beam ext;
                ext.tokens = open[r]->tokens;
                ext.tokens.push_back(t);
                ext.logProb = open[r]->logProb + adjusted[sz(t)];
                ext.saKCache = open[r]->saKCache;
                ext.saVCache = open[r]->saVCache;
                ext.finished = t == endId_;
                next.push_back(std::move(ext));
                if (diversityPenalty > 0) ++picked[sz(t)];
            }
        }
        std::stable_sort(next.begin(), next.end(), better);
        if (next.size() > sz(beamWidth)) next.resize(sz(beamWidth));
        beams = std::move(next);
    }
    std::vector<Beam> finished;
    for (auto& b : beams)
        if (b.finished) finished.push_back(std::move(b));
    if (finished.empty()) finished = std::move(beams);  // fifty steps without an end: the best so far
    std::stable_sort(finished.begin(), finished.end(), better);
    return finished;
}

std::string BARTG2P::toPhonemes(const std::vector<int>& tokens) const {
    std::string out;
    for (int t : tokens)
        if (auto it = idToPhoneme_.find(t); it != idToPhoneme_.end() && t != padId_ && t != startId_ && t != endId_)
            out += it->second;
    return out;
}

void BARTG2P::loadOverrides() {
    if (overridesChecked_) return;
    overridesChecked_ = true;
    std::error_code ec;
    const auto path = directory_ / "tech_overrides.json";
    if (!std::filesystem::exists(path, ec)) return;
    try {
        const auto j = nlohmann::json::parse(readFile(path), nullptr, false);
        if (!j.is_object()) return;
        std::unordered_map<std::string, std::string> map;
        for (const auto& [k, v] : j.items())
            if (v.is_string()) map.emplace(text::lower(k), v.get<std::string>());
        overrides_ = std::move(map);
    } catch (const std::exception&) {
    }
}

std::optional<std::string> BARTG2P::lookupOverride(const std::string& text) {
    loadOverrides();
    if (!overrides_) return std::nullopt;
    if (auto it = overrides_->find(text::lower(text)); it != overrides_->end()) return it->second;
    return std::nullopt;
}

std::optional<std::string> BARTG2P::predict(const std::string& text, int beamWidth, float lengthPenalty, bool rescoreLM) {
    if (auto o = lookupOverride(text)) return o;
    if (rescoreLM) return predictWithLMRescore(text);
    const auto ids = inputIds(text);
    if (ids.empty()) return std::nullopt;
    const auto enc = encode(ids);
    if (beamWidth <= 1) return toPhonemes(decodeGreedy(enc));
    const auto beams = beamSearchCore(enc, beamWidth, lengthPenalty, 0);
    if (beams.empty()) return std::nullopt;
    return toPhonemes(beams.front().tokens);
}

std::vector<std::pair<std::string, float>> BARTG2P::predictNBestScored(const std::string& text, int beamWidth,
                                                                       float lengthPenalty, float diversityPenalty) {
    const auto ids = inputIds(text);
    if (ids.empty()) return {};
    const auto beams = beamSearchCore(encode(ids), std::max(1, beamWidth), lengthPenalty, diversityPenalty);
    std::vector<std::pair<std::string, float>> out;
    for (const auto& b : beams) {
        auto p = toPhonemes(b.tokens);
        if (p.empty()) continue;
        if (std::none_of(out.begin(), out.end(), [&](const auto& c) { return c.first == p; }))
            out.emplace_back(std::move(p), b.logProb);
    }
    return out;
}

std::vector<std::string> BARTG2P::predictNBest(const std::string& text, int beamWidth, float lengthPenalty,
                                               float diversityPenalty) {
    std::vector<std::string> out;
    for (auto& [p, lp] : predictNBestScored(text, beamWidth, lengthPenalty, diversityPenalty)) out.push_back(std::move(p));
    return out;
}

double BARTG2P::trigramScore(const std::string& phonemes) {
    if (!trigramChecked_) {
        trigramChecked_ = true;
        std::error_code ec;
        const auto path = directory_ / "phoneme_trigram.txt";
        if (std::filesystem::exists(path, ec)) try {
                trigramLM_.emplace(path);
            } catch (const std::exception&) {
            }
    }
    return trigramLM_ ? trigramLM_->logProb(phonemes) : 0.0;
}

const NeuralReranker* BARTG2P::reranker() {
    if (!rerankerChecked_) {
        rerankerChecked_ = true;  // a file that won't load isn't tried again
        std::error_code ec;
        const auto path = directory_ / "reranker.safetensors";
        if (std::filesystem::exists(path, ec)) try {
                reranker_.emplace(path);
            } catch (const std::exception&) {
            }
    }
    return reranker_ ? &*reranker_ : nullptr;
}

std::optional<std::string> BARTG2P::predictWithLMRescore(const std::string& text) {
    if (auto o = lookupOverride(text)) return o;
    trigramScore("");
    const NeuralReranker* rr = reranker();
    const auto candidates = predictNBestScored(text, rr ? 8 : 4, 0.0f, 1.5f);
    if (candidates.empty()) return std::nullopt;
    if (candidates.size() == 1) return candidates.front().first;
    std::size_t best = 0;
    if (rr) {
        const auto word = text::lower(text);
        float bestScore = -std::numeric_limits<float>::infinity();
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            const auto& [p, lp] = candidates[i];
            const float s = rr->score(word, p, lp, static_cast<float>(trigramScore(p)));
            if (s > bestScore) bestScore = s, best = i;
        }
        return candidates[best].first;
    }
    // Without the reranker: the model's share of the probability among the candidates, in
    // logarithms, plus the trigram model's mean log-probability.
    float top = -std::numeric_limits<float>::infinity();
    for (const auto& c : candidates) top = std::max(top, c.second);
    float sum = 0;
    for (const auto& c : candidates) sum += std::exp(c.second - top);
    double bestScore = -std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        const double s = (candidates[i].second - top - std::log(sum)) + trigramScore(candidates[i].first);
        if (s > bestScore) bestScore = s, best = i;
    }
    return candidates[best].first;
}

std::vector<std::vector<float>> BARTG2P::teacherForcedLogits(const std::string& word, const std::string& phonemes) {
    const auto ids = inputIds(word);
    if (ids.empty()) return {};
    const auto enc = encode(ids);
    std::unordered_map<std::string, int> phonemeId;
    for (const auto& [id, p] : idToPhoneme_) phonemeId.emplace(p, id);
    std::vector<int> tokens{startId_};
    for (char32_t c : utf8::decode(phonemes)) {
        const auto it = phonemeId.find(utf8::encode(c));
        if (it == phonemeId.end()) throw BARTG2PError("The phoneme " + utf8::encode(c) + " is not in the model's vocabulary.");
        tokens.push_back(it->second);
    }
    Beam beam;
    std::vector<Beam*> beams{&beam};
    std::vector<std::vector<float>> out;
    for (std::size_t i = 0; i < tokens.size() && static_cast<int>(i) + kPositionOffset < maxPositions_; ++i)
        out.push_back(decoderStep({tokens[i]}, static_cast<int>(i), beams, enc));
    return out;
}

int BARTG2P::phonemeEditDistance(const std::string& a, const std::string& b) {
    const auto x = utf8::decode(a), y = utf8::decode(b);
    std::vector<int> prev(y.size() + 1), cur(y.size() + 1);
    std::iota(prev.begin(), prev.end(), 0);
    for (std::size_t i = 1; i <= x.size(); ++i) {
        cur[0] = static_cast<int>(i);
        for (std::size_t j = 1; j <= y.size(); ++j)
            cur[j] = std::min({prev[j] + 1, cur[j - 1] + 1, prev[j - 1] + (x[i - 1] != y[j - 1] ? 1 : 0)});
        std::swap(prev, cur);
    }
    return prev[y.size()];
}

} // namespace tavorin
