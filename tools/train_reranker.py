#!/usr/bin/python3
"""Train the reranker that chooses among the letters-to-phonemes model's beam candidates.

Its examples are the candidates the program's own inference gives for validation words
(never the held-out ones), with the model's and the trigram model's scores:

    build/src/main/tavorin-g2p-eval build/g2p/valid.tsv --candidates build/g2p/candidates.tsv
    nice -n 19 /usr/bin/python3 tools/train_reranker.py build/g2p/candidates.tsv

Each word's candidates are scored together and trained towards the ones nearest the
dictionary's reading (a softmax over the word's candidates). Writes resources/speech/reranker.safetensors.
"""
import argparse
import collections
import os
import random
import sys

import torch
import torch.nn as nn
import torch.nn.functional as F

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from train_g2p import DATA, edit, write_safetensors  # noqa: E402

E, C, K, H, MAXLEN, NCAND = 32, 64, 5, 32, 128, 8


class Reranker(nn.Module):
    def __init__(self, n_chars):
        super().__init__()
        self.char_embed = nn.Embedding(n_chars, E)
        self.type_embed = nn.Embedding(2, E)
        self.conv1 = nn.Conv1d(E, C, K, padding=K // 2)
        self.bn1 = nn.BatchNorm1d(C)
        self.conv2 = nn.Conv1d(C, C, K, padding=K // 2)
        self.bn2 = nn.BatchNorm1d(C)
        self.fc1 = nn.Linear(C + 2, H)
        self.fc2 = nn.Linear(H, 1)
        self.register_buffer('feat_mean', torch.zeros(2))
        self.register_buffer('feat_std', torch.ones(2))

    def forward(self, chars, types, mask, feats):
        # Positions past a sequence's end are zeros, as the C++ side's same-padding sees them.
        m = mask[:, None, :]
        x = ((self.char_embed(chars) + self.type_embed(types)).transpose(1, 2)) * m
        x = F.relu(self.bn1(self.conv1(x))) * m
        x = F.relu(self.bn2(self.conv2(x))) * m
        pooled = x.sum(2) / mask.sum(1, keepdim=True)
        f = (feats - self.feat_mean) / self.feat_std
        return self.fc2(F.relu(self.fc1(torch.cat([pooled, f], 1)))).squeeze(1)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('candidates')
    ap.add_argument('--epochs', type=int, default=8)
    args = ap.parse_args()
    torch.manual_seed(1234)
    rng = random.Random(1234)
    torch.set_num_threads(1)
    groups = collections.OrderedDict()
    for line in open(args.candidates, encoding='utf-8'):
        w, ref, cand, lp, tri = line.rstrip('\n').split('\t')
        groups.setdefault((w, ref), []).append((cand, float(lp), float(tri)))
    chars = sorted({c for (w, ref), cs in groups.items() for c in w + ''.join(x[0] for x in cs)})
    cid = {c: i + 1 for i, c in enumerate(chars)}
    items = []
    for (w, ref), cs in groups.items():
        cs = cs[:NCAND]
        d = [edit(c[0], ref) for c in cs]
        if len(cs) < 2 or min(d) == max(d):
            continue  # nothing to learn from a word whose candidates are all as good
        target = torch.tensor([1.0 if x == min(d) else 0.0 for x in d])
        items.append((w, cs, target / target.sum()))
    print(f'{len(groups)} words, {len(items)} with a choice to learn', flush=True)
    feats = torch.tensor([[c[1], c[2]] for _, cs, _ in items for c in cs])
    model = Reranker(len(chars) + 1)
    model.feat_mean.copy_(feats.mean(0))
    model.feat_std.copy_(feats.std(0).clamp_min(1e-3))

    def tensors(batch):
        rows = [(w, c) for w, cs, _ in batch for c in cs]
        L = min(MAXLEN, max(len(w) + len(c[0]) for w, c in rows))
        ch = torch.zeros(len(rows), L, dtype=torch.long)
        ty = torch.zeros(len(rows), L, dtype=torch.long)
        mk = torch.zeros(len(rows), L)
        for i, (w, c) in enumerate(rows):
            seq = [(cid.get(x, 0), 0) for x in w] + [(cid.get(x, 0), 1) for x in c[0]]
            seq = seq[:MAXLEN]
            ch[i, :len(seq)] = torch.tensor([s[0] for s in seq])
            ty[i, :len(seq)] = torch.tensor([s[1] for s in seq])
            mk[i, :len(seq)] = 1
        f = torch.tensor([[c[1], c[2]] for _, c in rows])
        return ch, ty, mk, f

    opt = torch.optim.Adam(model.parameters(), lr=2e-3)
    held = items[: len(items) // 10]
    train = items[len(items) // 10:]
    for epoch in range(args.epochs):
        model.train()
        rng.shuffle(train)
        total = 0.0
        for i in range(0, len(train), 32):
            batch = train[i:i + 32]
            scores = model(*tensors(batch))
            loss, k = 0.0, 0
            for _, cs, target in batch:
                s = scores[k:k + len(cs)]
                loss = loss - (target * F.log_softmax(s, 0)).sum()
                k += len(cs)
            loss = loss / len(batch)
            opt.zero_grad()
            loss.backward()
            opt.step()
            total += loss.item() * len(batch)
        model.eval()
        with torch.no_grad():
            right = 0
            scores = model(*tensors(held)) if held else []
            k = 0
            for _, cs, target in held:
                right += target[int(scores[k:k + len(cs)].argmax())] > 0
                k += len(cs)
        print(f'epoch {epoch + 1} loss {total / len(train):.4f} held-back choice accuracy '
              f'{right / max(1, len(held)):.3f}', flush=True)
    sd = {k: v for k, v in model.state_dict().items() if not k.endswith('num_batches_tracked')}
    write_safetensors(os.path.join(DATA, 'reranker.safetensors'), sd, {'chars': ''.join(chars)})
    # The C++ side is checked against these scores.
    import json
    model.eval()
    examples = [(w, c) for w, cs, _ in (held or train)[:3] for c in cs[:2]]
    with torch.no_grad():
        batch = [(w, [c], None) for w, c in examples]
        scores = model(*tensors(batch)).tolist()
    with open(os.path.join(DATA, 'reranker_parity.json'), 'w', encoding='utf-8') as f:
        json.dump([{'word': w, 'candidate': c[0], 'model_log_prob': c[1], 'trigram_log_prob': c[2], 'score': s}
                   for (w, c), s in zip(examples, scores)], f, ensure_ascii=False)
        f.write('\n')
    print('written', flush=True)


if __name__ == '__main__':
    main()
