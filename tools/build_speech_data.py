#!/usr/bin/env python3
"""Builds the phonemiser's dictionaries and the tagger's data from Debian packages.

Run with Debian's interpreter: /usr/bin/python3 tools/build_speech_data.py [outdir]
Inputs: festlex-cmu, festlex-poslex, wamerican, wamerican-large, espeak-ng.
Outputs (default resources/speech): us_gold.json, us_silver.json, gb_gold.json,
gb_silver.json, tagger.txt. The output is the same for the same inputs.

ARPAbet (CMUdict) to the US phoneme set:
  aa ɑ   ae æ   ao ɔ   eh ɛ   ih ɪ   iy i   uh ʊ   uw u   ax ə
  ah ʌ when its syllable is stressed, ə when not
  er ɜɹ when stressed, əɹ when not
  the five diphthongs take one letter each: ey A, ay I, ow O, aw W, oy Y
  ch ʧ  jh ʤ  dh ð  th θ  sh ʃ  zh ʒ  ng ŋ  hh h  y j  r ɹ  g ɡ, the rest as spelled
Stress: the dictionary marks stressed syllables with 1 and nothing finer. In a word
with several, the one espeak-ng stresses takes the primary mark "ˈ" and the others the
secondary "ˌ" (when espeak counts the same syllables; otherwise the first stressed one
is primary). The mark goes just before the syllable's vowel, where stress rules expect it.
Reduced forms: an unstressed ih or ax before the final d of an "-ed" word or the
final z of an "-es" word is "ᵻ"; an unstressed ax between a consonant and a final
l, n or m is the syllabic "ᵊ". American flap: t between a vowel (or a vowel and r)
and an unstressed vowel becomes "ɾ".
Words read differently by part of speech become objects keyed by the tag classes
the lexicon asks for (NOUN, VERB and VBP, ADJ, DT) with a DEFAULT reading; the
festival marks map n NOUN, v VERB, j ADJ, dt DT, nil DEFAULT. heteronyms.tsv adds
the past-tense and habitual readings the dictionary does not separate, and
heteronyms-gb.tsv the same words for British English, where espeak gives one reading.

Silver and British come from espeak-ng's IPA, mapped letter by letter into the
same sets (see US_IPA and GB_IPA); a word with anything left outside its set is
dropped rather than guessed.
"""
import json, os, re, subprocess, sys, struct
from concurrent.futures import ThreadPoolExecutor

CMU = '/usr/share/festival/dicts/cmu/cmudict-0.4.out'
POSLEX = '/usr/share/festival/dicts/wsj.wp39.poslexR'
NGRAM = '/usr/share/festival/dicts/wsj.wp39.tri.ngrambin'
WORDLISTS = ['/usr/share/dict/american-english', '/usr/share/dict/american-english-large']
HERE = os.path.dirname(os.path.abspath(__file__))

US_VOCAB = set("AIOWYbdfhijklmnpstuvwzæðŋɑɔəɛɜɡɪɹɾʃʊʌʒʤʧˈˌθᵊᵻʔ")
GB_VOCAB = set("AIQWYabdfhijklmnpstuvwzðŋɑɒɔəɛɜɡɪɹʃʊʌʒʤʧˈˌːθᵊ")

ARPA = {'aa': 'ɑ', 'ae': 'æ', 'ao': 'ɔ', 'eh': 'ɛ', 'ih': 'ɪ', 'iy': 'i', 'uh': 'ʊ',
        'uw': 'u', 'ax': 'ə', 'ey': 'A', 'ay': 'I', 'ow': 'O', 'aw': 'W', 'oy': 'Y',
        'b': 'b', 'ch': 'ʧ', 'd': 'd', 'dh': 'ð', 'f': 'f', 'g': 'ɡ', 'hh': 'h',
        'jh': 'ʤ', 'k': 'k', 'l': 'l', 'm': 'm', 'n': 'n', 'ng': 'ŋ', 'p': 'p',
        'r': 'ɹ', 's': 's', 'sh': 'ʃ', 't': 't', 'th': 'θ', 'v': 'v', 'w': 'w',
        'y': 'j', 'z': 'z', 'zh': 'ʒ'}
VOWELS = {'aa', 'ae', 'ah', 'ao', 'aw', 'ax', 'ay', 'eh', 'er', 'ey', 'ih', 'iy', 'ow', 'oy', 'uh', 'uw'}
POS_KEYS = {'n': 'NOUN', 'v': 'VERB', 'j': 'ADJ', 'dt': 'DT', 'nil': 'DEFAULT'}

ENTRY = re.compile(r'^\("((?:[^"\\]|\\.)*)" (\S+) \((.*)\)\)\s*$')
SYLL = re.compile(r'\(\(([a-z ]+)\) (\d)\)')


def arpa_to_us(word, syllables, primary=None):
    """syllables: list of (phones, stress) -> phoneme string. primary: the index of the
    syllable that takes the primary stress, or None for the first stressed one."""
    phones = []  # (phone, stress of its syllable, syllable index)
    for k, (ph, st) in enumerate(syllables):
        for p in ph.split():
            phones.append((p, st, k))
    out = []
    seen_primary = False
    n = len(phones)
    for i, (p, st, syl) in enumerate(phones):
        if p in VOWELS:
            mark = ''
            if st > 0:
                if primary is None:
                    mark = 'ˌ' if seen_primary else 'ˈ'
                else:
                    mark = 'ˈ' if syl == primary else 'ˌ'
                seen_primary = True
            if p == 'ah':
                sym = 'ʌ' if st > 0 else 'ə'
            elif p == 'er':
                sym = 'ɜɹ' if st > 0 else 'əɹ'
            else:
                sym = ARPA[p]
            last = i == n - 2
            if st == 0 and p in ('ih', 'ax') and last:
                nxt = phones[i + 1][0]
                if (nxt == 'd' and word.lower().endswith('ed')) or (nxt == 'z' and word.lower().endswith('es')):
                    sym = 'ᵻ'
            if st == 0 and p == 'ax' and last and i > 0 and phones[i + 1][0] in ('l', 'n', 'm') \
                    and phones[i - 1][0] not in VOWELS and phones[i - 1][0] not in ('r', 'y', 'w'):
                sym = 'ᵊ'
            out.append(mark + sym)
        elif p == 't' and 0 < i < n - 1:
            prev = phones[i - 1][0]
            before = phones[i - 2][0] if i > 1 else ''
            nxt, nst, _ = phones[i + 1]
            after_vowel = prev in VOWELS or (prev == 'r' and before in VOWELS)
            if after_vowel and nxt in VOWELS and nst == 0 and nxt != 'er' or (after_vowel and nxt == 'er' and nst == 0):
                out.append('ɾ')
            else:
                out.append('t')
        else:
            out.append(ARPA[p])
    return ''.join(out)


IPA_NUCLEUS = set('aeiouæɑɒɔəɛɜɪʊʌɐɚɝᵻɘɵʉɨøœɤyʏ')


def ipa_primary(ipa):
    """(number of syllable nuclei, index of the one after the primary mark) in espeak's IPA."""
    count, primary, marked, in_vowel = 0, None, False, False
    for c in ipa:
        if c == 'ˈ':
            marked, in_vowel = True, False
            continue
        syllabic = c == '\u0329'  # the mark under a syllabic consonant: that consonant is a nucleus
        vowel = c in IPA_NUCLEUS
        if syllabic or (vowel and not in_vowel):
            count += 1
            if marked and primary is None:
                primary = count - 1
            marked = False
        in_vowel = vowel or (in_vowel and c == 'ː')
    return count, primary


def heteronyms(name):
    out = {}
    with open(os.path.join(HERE, name), encoding='utf-8') as f:
        for line in f:
            line = line.strip()
            if not line or line.startswith('#'):
                continue
            word, *pairs = line.split('\t')
            out[word] = {k: v for k, v in (p.split('=', 1) for p in pairs)}
    return out


def read_cmu():
    """CMUdict in the US set. The dictionary marks every stressed syllable alike; where a word
    has more than one, espeak-ng's reading of the word says which one is primary (when both
    count the same syllables), and otherwise the first stressed syllable is."""
    raw = []  # (word, key, syllables) in file order
    with open(CMU, encoding='latin-1') as f:
        for line in f:
            m = ENTRY.match(line)
            if not m:
                continue
            word, pos, body = m.group(1), m.group(2), m.group(3)
            sylls = [(s, int(st)) for s, st in SYLL.findall(body)]
            if sylls:
                raw.append((word, POS_KEYS.get(pos, 'DEFAULT'), sylls))
    several = sorted({w for w, _, sy in raw if sum(1 for _, st in sy if st > 0) > 1 and '\n' not in w})
    guide = espeak(several, 'en-us')
    readings = {}  # word -> list of (key, phonemes) in file order
    for word, key, sylls in raw:
        primary = None
        if word in guide:
            count, p = ipa_primary(guide[word])
            if count == len(sylls) and p is not None and sylls[p][1] > 0:
                primary = p
        readings.setdefault(word, []).append((key, arpa_to_us(word, sylls, primary)))
    gold = {}
    for word, rs in readings.items():
        distinct = []
        for k, p in rs:
            if p not in [q for _, q in distinct]:
                distinct.append((k, p))
        if len(distinct) == 1:
            gold[word] = distinct[0][1]
            continue
        entry = {}
        for k, p in rs:
            entry.setdefault(k, p)
        if 'VERB' in entry:
            entry.setdefault('VBP', entry['VERB'])
        if 'DEFAULT' not in entry:
            for k in ('NOUN', 'VERB', 'ADJ', 'DT'):
                if k in entry:
                    entry['DEFAULT'] = entry[k]
                    break
        gold[word] = entry
    gold.update(heteronyms('heteronyms.tsv'))
    # Letters read by name, capitalised as the letter-by-letter reader asks for them.
    for c in 'abcdefghijklmnopqrstuvwxyz':
        e = gold.get(c)
        name = e if isinstance(e, str) else (e.get('NOUN') or e['DEFAULT'])
        gold[c.upper()] = name
    return gold


def espeak(words, voice):
    """IPA for each word, one word a line through espeak-ng, in two halves at once."""
    def run(chunk):
        r = subprocess.run(['espeak-ng', '-q', '-x', '--ipa', '-v', voice],
                           input='\n'.join(chunk) + '\n', capture_output=True, text=True, check=True)
        lines = r.stdout.split('\n')
        lines = [l.strip() for l in lines if l.strip() != '' or False]
        return lines if len(lines) == len(chunk) else None
    out = {}
    chunks = [words[i:i + 2000] for i in range(0, len(words), 2000)]
    with ThreadPoolExecutor(2) as ex:
        for chunk, lines in zip(chunks, ex.map(run, chunks)):
            if lines is None:  # a word that split in two lines: do this chunk word by word
                lines = [(run([w]) or [''])[0] for w in chunk]
            out.update(zip(chunk, lines))
    return out


COMMON_IPA = [('\u0361', ''), ('ʲ', ''), ('ˑ', ''), ('̃', ''), ('ɬ', 'l'), ('x', 'k'), ('ç', 'h'),
              ('tʃ', 'ʧ'), ('dʒ', 'ʤ'), ('r', 'ɹ'), ('g', 'ɡ'), ('n̩', 'ᵊn'), ('l̩', 'ᵊl'), ('m̩', 'ᵊm'), ('ɪ̈', 'ᵻ')]
US_IPA = COMMON_IPA + [('eɪ', 'A'), ('aɪ', 'I'), ('oʊ', 'O'), ('aʊ', 'W'), ('ɔɪ', 'Y'), ('ɚ', 'əɹ'),
                       ('ɝ', 'ɜɹ'), ('ɜːɹ', 'ɜɹ'), ('ɜː', 'ɜɹ'), ('ɐ', 'ə'), ('ɒ', 'ɑ'), ('e', 'ɛ'),
                       ('o', 'O'), ('a', 'æ'), ('ː', '')]
GB_IPA = COMMON_IPA + [('eɪ', 'A'), ('aɪ', 'I'), ('əʊ', 'Q'), ('oʊ', 'Q'), ('aʊ', 'W'), ('ɔɪ', 'Y'),
                       ('eə', 'ɛː'), ('æ', 'a'), ('ɐ', 'ə'), ('ɚ', 'ə'), ('ɾ', 't'), ('ᵻ', 'ɪ'), ('ʔ', 't'),
                       ('aː', 'ɑː'), ('e', 'ɛ'), ('o', 'ɔ')]


def map_ipa(ipa, table, vocab):
    s = ipa.replace(' ', '').replace('-', '')
    for a, b in table:
        s = s.replace(a, b)
    s = s.replace('ɹɹ', 'ɹ')  # espeak writes a linking r twice
    return s if s and set(s) <= vocab and any(c not in 'ˈˌ' for c in s) else None


def wordlist():
    words = set()
    for path in WORDLISTS:
        with open(path, encoding='utf-8') as f:
            for w in f:
                w = w.strip()
                if w and not w.endswith("'s") and re.fullmatch(r"[^\W\d_]+(?:['-][^\W\d_]+)*", w):
                    words.add(w)
    return sorted(words)


def build_tagger(path):
    """Tag names, the tag trigram counts and the word/tag lexicon in one text file."""
    raw = open(NGRAM, 'rb').read()
    header, vocab, predvocab, rest = raw.split(b'\n', 3)
    assert header.startswith(b'NgramBin_2 3')
    tags = vocab.decode().split()
    vals = struct.unpack('>%dd' % (len(rest) // 8), rest)
    counts = []
    for v in vals:  # a negative value -k repeats the value before it k-1 more times
        if v < 0:
            counts.extend([counts[-1]] * (int(-v) - 1))
        else:
            counts.append(v)
    assert len(counts) == len(tags) ** 3
    with open(path, 'w', encoding='utf-8') as out:
        out.write('tags ' + ' '.join(tags) + '\n')
        for i in range(0, len(counts), len(tags)):
            out.write(' '.join('%g' % c for c in counts[i:i + len(tags)]) + '\n')
        lex = re.compile(r'^\("((?:[^"\\]|\\.)*)" \((.*)\) \(\) \)\s*$')
        pair = re.compile(r'\((\S+) (-?[\d.]+)\)')
        with open(POSLEX, encoding='latin-1') as f:
            for line in f:
                m = lex.match(line)
                if m:
                    out.write(m.group(1) + '\t' + ' '.join('%s:%s' % p for p in pair.findall(m.group(2))) + '\n')


def dump(obj, path):
    with open(path, 'w', encoding='utf-8') as f:
        json.dump(obj, f, ensure_ascii=False, sort_keys=True, separators=(',', ':'))
        f.write('\n')


def main():
    outdir = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, '..', 'resources', 'speech')
    os.makedirs(outdir, exist_ok=True)
    build_tagger(os.path.join(outdir, 'tagger.txt'))
    gold = read_cmu()
    dump(gold, os.path.join(outdir, 'us_gold.json'))
    lower = {w.lower() for w in gold}
    extra = [w for w in wordlist() if w.lower() not in lower]
    us = espeak(extra, 'en-us')
    dump({w: p for w, p in ((w, map_ipa(us[w], US_IPA, US_VOCAB)) for w in extra) if p},
         os.path.join(outdir, 'us_silver.json'))
    gold_words = sorted(w for w in gold if len(w) > 1 and re.fullmatch(r"[^\W\d_]+(?:['.-][^\W\d_]*)*", w))
    gb = espeak(gold_words, 'en-gb')
    gbg = {w: p for w, p in ((w, map_ipa(gb[w], GB_IPA, GB_VOCAB)) for w in gold_words) if p}
    for c in 'abcdefghijklmnopqrstuvwxyz':
        p = map_ipa(espeak([c], 'en-gb')[c], GB_IPA, GB_VOCAB)
        gbg[c.upper()] = p
    gbg.update(heteronyms('heteronyms-gb.tsv'))
    dump(gbg, os.path.join(outdir, 'gb_gold.json'))
    gbs = espeak(extra, 'en-gb')
    dump({w: p for w, p in ((w, map_ipa(gbs[w], GB_IPA, GB_VOCAB)) for w in extra) if p},
         os.path.join(outdir, 'gb_silver.json'))


if __name__ == '__main__':
    main()
