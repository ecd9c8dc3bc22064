#!/usr/bin/python3
"""Count the phoneme trigrams of the training words (the same split as tools/train_g2p.py, so
held-out words are never counted) into resources/speech/phoneme_trigram.txt, and write the
validation and held-out slices as word<TAB>phonemes files for the evaluation program and the
reranker's training.

    /usr/bin/python3 tools/build_phoneme_trigram.py --out build/g2p

The file: "vocab N", then "a b c count" a line, "^" marking the start of a word; stress,
length and tie marks are left out, as the scorer ignores them.
"""
import argparse
import collections
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from train_g2p import DATA, load_pairs  # noqa: E402

IGNORED = set('ˈˌː\u0361\u035c ')


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('--out', default=os.path.join(os.path.dirname(DATA), '..', 'build', 'g2p'))
    args = ap.parse_args()
    data = load_pairs()
    counts = collections.Counter()
    symbols = set()
    for _, p in data['train']:
        seq = ['^'] + [c for c in p if c not in IGNORED]
        symbols.update(seq[1:])
        for i in range(2, len(seq)):
            counts[(seq[i - 2], seq[i - 1], seq[i])] += 1
    with open(os.path.join(DATA, 'phoneme_trigram.txt'), 'w', encoding='utf-8') as f:
        f.write(f'vocab {len(symbols)}\n')
        for (a, b, c), n in sorted(counts.items()):
            f.write(f'{a} {b} {c} {n}\n')
    os.makedirs(args.out, exist_ok=True)
    for name in ('valid', 'test'):
        with open(os.path.join(args.out, name + '.tsv'), 'w', encoding='utf-8') as f:
            for w, p in data[name]:
                f.write(f'{w}\t{p}\n')
    print(f'{len(counts)} trigrams over {len(symbols)} phonemes')


if __name__ == '__main__':
    main()
