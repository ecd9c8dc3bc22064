#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "speech/Lexicon.hpp"
#include "speech/PosTagger.hpp"

using namespace tavorin;

namespace {

const PosTagger& tagger() {
    static const auto t = std::make_unique<PosTagger>(speechDataDirectory() / "tagger.txt");
    return *t;
}

// Sentences written and tagged by hand for this test (Penn Treebank tags), none taken from
// the text the tagger's counts came from.
const char* const kTagged[] = {
    "The/DT quick/JJ brown/JJ fox/NN jumps/VBZ over/IN the/DT lazy/JJ dog/NN ./.",
    "She/PRP recorded/VBD a/DT short/JJ film/NN about/IN her/PRP$ new/JJ product/NN ./.",
    "Click/VB the/DT button/NN and/CC wait/VB for/IN the/DT page/NN to/TO load/VB ./.",
    "We/PRP will/MD show/VB you/PRP how/WRB to/TO export/VB the/DT video/NN ./.",
    "The/DT company/NN reported/VBD higher/JJR profits/NNS in/IN the/DT third/JJ quarter/NN ./.",
    "Prices/NNS rose/VBD sharply/RB after/IN the/DT announcement/NN ./.",
    "He/PRP is/VBZ reading/VBG the/DT latest/JJS report/NN on/IN the/DT market/NN ./.",
    "They/PRP have/VBP already/RB finished/VBN the/DT first/JJ draft/NN ./.",
    "It/PRP was/VBD a/DT very/RB good/JJ year/NN for/IN investors/NNS ./.",
    "Open/VB the/DT settings/NNS ,/, then/RB choose/VB a/DT new/JJ voice/NN ./.",
    "The/DT narrator/NN speaks/VBZ slowly/RB and/CC clearly/RB ./.",
    "Our/PRP$ team/NN builds/VBZ tools/NNS that/WDT people/NNS use/VBP every/DT day/NN ./.",
    "Most/JJS analysts/NNS expect/VBP the/DT bank/NN to/TO cut/VB interest/NN rates/NNS ./.",
    "The/DT board/NN approved/VBD the/DT plan/NN on/IN Monday/NNP ./.",
    "There/EX are/VBP many/JJ ways/NNS to/TO improve/VB the/DT sound/NN ./.",
    "This/DT version/NN includes/VBZ several/JJ important/JJ changes/NNS ./.",
    "Sales/NNS of/IN new/JJ homes/NNS fell/VBD 5/CD percent/NN last/JJ month/NN ./.",
    "The/DT chairman/NN said/VBD that/IN the/DT merger/NN would/MD be/VB completed/VBN soon/RB ./.",
    "You/PRP can/MD drag/VB the/DT clip/NN to/TO the/DT timeline/NN ./.",
    "Each/DT line/NN has/VBZ its/PRP$ own/JJ audio/NN file/NN ./.",
    "John/NNP Smith/NNP joined/VBD the/DT firm/NN in/IN 1998/CD ./.",
    "The/DT new/JJ rules/NNS will/MD take/VB effect/NN next/JJ year/NN ./.",
    "What/WP did/VBD the/DT agency/NN decide/VB ?/.",
    "Investors/NNS were/VBD worried/VBN about/IN rising/VBG costs/NNS ./.",
    "The/DT camera/NN follows/VBZ the/DT mouse/NN as/IN it/PRP moves/VBZ ./.",
    "He/PRP quickly/RB wrote/VBD a/DT letter/NN to/TO the/DT editor/NN ./.",
    "Shares/NNS closed/VBD at/IN $/$ 42/CD on/IN Friday/NNP ./.",
    "The/DT studio/NN renders/VBZ each/DT scene/NN before/IN the/DT final/JJ export/NN ./.",
    "I/PRP read/VBD the/DT book/NN yesterday/NN and/CC liked/VBD it/PRP ./.",
    "Please/UH record/VB the/DT next/JJ line/NN again/RB ./.",
};

} // namespace

TEST(PosTagger, TagsHandWrittenSentencesMostlyRight) {
    std::size_t total = 0, right = 0;
    std::ostringstream misses;
    for (const char* sentence : kTagged) {
        std::istringstream in(sentence);
        std::vector<std::string> words, gold;
        for (std::string pair; in >> pair;) {
            const auto slash = pair.rfind('/');
            words.push_back(pair.substr(0, slash));
            gold.push_back(pair.substr(slash + 1));
        }
        const auto tags = tagger().tag(words);
        ASSERT_EQ(tags.size(), words.size());
        for (std::size_t i = 0; i < words.size(); ++i) {
            ++total;
            if (tags[i] == gold[i]) ++right;
            else misses << words[i] << "/" << tags[i] << "(" << gold[i] << ") ";
        }
    }
    const double accuracy = static_cast<double>(right) / static_cast<double>(total);
    RecordProperty("accuracy", std::to_string(accuracy));
    std::cout << "tagger accuracy " << right << "/" << total << " = " << accuracy << "\nmisses: " << misses.str() << "\n";
    EXPECT_GE(accuracy, 0.93) << misses.str();
}

TEST(PosTagger, UnknownWordsAreGuessedFromTheirShape) {
    const auto tags = tagger().tag({"The", "blorfs", "were", "snazzling", "Quendrix", "1234", "times", "."});
    EXPECT_EQ(tags[1], "NNS");
    EXPECT_EQ(tags[3], "VBG");
    EXPECT_EQ(tags[4], "NNP");
    EXPECT_EQ(tags[5], "CD");
    EXPECT_TRUE(tagger().tag({}).empty());
    EXPECT_EQ(tagger().tag({"😀"}).size(), 1u);
}

TEST(PosTagger, PennTagsMapToWordClasses) {
    EXPECT_EQ(PosTagger::lexicalClass("NNS", "cats"), LexicalClass::Noun);
    EXPECT_EQ(PosTagger::lexicalClass("NNP", "Ada"), LexicalClass::PersonalName);
    EXPECT_EQ(PosTagger::lexicalClass("MD", "can"), LexicalClass::Verb);
    EXPECT_EQ(PosTagger::lexicalClass("PRP$", "her"), LexicalClass::Pronoun);
    EXPECT_EQ(PosTagger::lexicalClass("WDT", "which"), LexicalClass::Determiner);
    EXPECT_EQ(PosTagger::lexicalClass("TO", "to"), LexicalClass::Particle);
    EXPECT_EQ(PosTagger::lexicalClass(":", "-"), LexicalClass::Dash);
    EXPECT_EQ(PosTagger::lexicalClass(".", "."), LexicalClass::SentenceTerminator);
}

TEST(PosTagger, DamagedDataIsASentence) {
    try {
        PosTagger t("/nonexistent/tagger.txt");
        FAIL();
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("could not be read"), std::string::npos);
    }
}
