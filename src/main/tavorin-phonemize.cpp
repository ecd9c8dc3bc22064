// tavorin-phonemize: how a user checks a pronunciation. Text as arguments or on standard
// input; the phoneme string on standard output.
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>

#include "speech/EnglishG2P.hpp"
#include "speech/PennTag.hpp"

namespace {

void usage(std::ostream& out) {
    out << "Usage: tavorin-phonemize [--british] [--tokens] [TEXT...]\n"
           "Prints the phonemes of TEXT, or of standard input when no text is given.\n"
           "  --british  British English dictionaries and vowels\n"
           "  --tokens   one line per token: text, tag, phonemes and rating\n";
}

} // namespace

int main(int argc, char** argv) {
    bool british = false, tokens = false, fromArgs = false;
    std::string text;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--british") british = true;
        else if (arg == "--tokens") tokens = true;
        else if (arg == "--help" || arg == "-h") {
            usage(std::cout);
            return 0;
        } else if (arg.rfind("--", 0) == 0 && arg.size() > 2) {
            std::cerr << "tavorin-phonemize does not know the option " << arg << ".\n";
            usage(std::cerr);
            return 2;
        } else {
            text += (fromArgs ? " " : "") + arg;
            fromArgs = true;
        }
    }
    if (!fromArgs) text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    try {
        tavorin::EnglishG2P g2p(british);
        auto [phonemes, list] = g2p.phonemize(text, true);
        if (tokens) {
            for (const auto& t : list) {
                std::cout << t.text << '\t' << (t.tag ? tavorin::lexicalClassName(*t.tag) : "-") << '/'
                          << (t.penn.empty() ? "-" : t.penn) << '\t' << (t.phonemes ? *t.phonemes : "(none)") << '\t'
                          << (t.meta.rating ? std::to_string(*t.meta.rating) : "-") << '\n';
            }
        } else {
            std::cout << phonemes << '\n';
        }
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
    return 0;
}
