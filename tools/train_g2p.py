#!/usr/bin/python3
"""Train the letters-to-phonemes model that reads words no dictionary holds.

A one-layer encoder and one-layer decoder transformer (width 128, feed-forward 1024, four
heads, learned positions offset by 2, an embedding shared by letters and phonemes, a bias on
the output logits), trained on the US gold dictionary in resources/speech. Words are split
by a hash of the word: 5% held out for testing (never trained or tuned on), 5% for
validation, the rest for training. The fixed seed makes a run repeatable given the same
thread count.

Run (two cores, in the background; it checkpoints every 250 steps and resumes from the
checkpoint when started again):

    nice -n 19 /usr/bin/python3 tools/train_g2p.py --max-minutes 40 --out build/g2p
    /usr/bin/python3 tools/train_g2p.py --export-only --out build/g2p   # writes resources/speech

The shipped weights: `nice -n 19 /usr/bin/python3 tools/train_g2p.py --max-minutes 32 --warmup 150
--dropout 0 --smoothing 0 --out build/g2p` on a shared, heavily loaded two-core machine: 32.0
minutes, 2,515 steps of 128 words (about 3.4 passes over the training words), validation PER
22.8% (Python greedy, 500 words). The log of each run goes to resources/speech/bart_g2p_training.txt.
It then went on with the defaults (dropout and smoothing 0.1) to 7,750 steps in 83.6 minutes, and,
its checkpoint gone, from the shipped weights on a quiet machine:

    nice -n 19 /usr/bin/python3 tools/train_g2p.py --continue-shipped --max-minutes 60 --threads 2 --out build/g2p

to 11,049 steps in 143.6 minutes in all; the best validation PER, 16.3% at step 10,500, is what
ships. Still improving slowly when it stopped.
"""
import argparse
import hashlib
import json
import math
import os
import random
import struct
import sys
import time

import torch
import torch.nn as nn
import torch.nn.functional as F

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DATA = os.path.join(ROOT, 'resources', 'speech')

SPECIALS = ['<pad>', '<s>', '</s>', '<unk>']
PAD, BOS, EOS, UNK = 0, 1, 2, 3
PHONEMES = "AIOWYbdfhijklmnpstuvwzæðŋɑɔəɛɜɡɪɹɾʃʊʌʒʤʧˈˌθᵊᵻʔ"
GRAPHEMES = "abcdefghijklmnopqrstuvwxyz'"
PH_OFF = len(SPECIALS)
GR_OFF = PH_OFF + len(PHONEMES)
VOCAB = GR_OFF + len(GRAPHEMES)
N_OUT = GR_OFF  # the decoder only ever answers specials and phonemes
D, FFN, HEADS, MAXPOS = 128, 1024, 4, 66
MAX_IN = 64
MAX_STEPS = 50


def split_of(word):
    h = int(hashlib.md5(word.encode()).hexdigest()[:8], 16) % 100
    return 'test' if h < 5 else 'valid' if h < 10 else 'train'


def load_pairs():
    gold = json.load(open(os.path.join(DATA, 'us_gold.json'), encoding='utf-8'))
    pairs = {}
    for word, p in gold.items():
        if isinstance(p, dict):
            p = p.get('DEFAULT') or next(iter(p.values()))
        if not p:
            continue
        w = word.lower()
        if w in pairs and word != w:
            continue  # the lower-case entry wins over a capitalised one
        if not all(c in GRAPHEMES for c in w) or not all(c in PHONEMES for c in p):
            continue
        if len(w) > MAX_IN or len(p) + 1 > MAX_STEPS:
            continue
        pairs[w] = p
    out = {'train': [], 'valid': [], 'test': []}
    for w in sorted(pairs):
        out[split_of(w)].append((w, pairs[w]))
    return out


def enc_ids(word):
    return [GR_OFF + GRAPHEMES.index(c) for c in word if c in GRAPHEMES][:MAX_IN]


def dec_ids(ph):
    return [PH_OFF + PHONEMES.index(c) for c in ph]


class Attention(nn.Module):
    def __init__(self):
        super().__init__()
        self.q_proj = nn.Linear(D, D)
        self.k_proj = nn.Linear(D, D)
        self.v_proj = nn.Linear(D, D)
        self.out_proj = nn.Linear(D, D)

    def forward(self, x, kv, mask):
        # mask: additive, broadcast to (B, H, Tq, Tk)
        B, Tq, _ = x.shape
        Tk = kv.shape[1]
        hd = D // HEADS
        q = self.q_proj(x).view(B, Tq, HEADS, hd).transpose(1, 2) * (hd ** -0.5)
        k = self.k_proj(kv).view(B, Tk, HEADS, hd).transpose(1, 2)
        v = self.v_proj(kv).view(B, Tk, HEADS, hd).transpose(1, 2)
        a = torch.softmax(q @ k.transpose(-1, -2) + mask, dim=-1)
        a = F.dropout(a, 0.0, self.training)
        o = (a @ v).transpose(1, 2).reshape(B, Tq, D)
        return self.out_proj(o)


class EncoderLayer(nn.Module):
    def __init__(self):
        super().__init__()
        self.self_attn = Attention()
        self.self_attn_layer_norm = nn.LayerNorm(D, eps=1e-5)
        self.fc1 = nn.Linear(D, FFN)
        self.fc2 = nn.Linear(FFN, D)
        self.final_layer_norm = nn.LayerNorm(D, eps=1e-5)

    def forward(self, x, mask, p):
        x = self.self_attn_layer_norm(x + F.dropout(self.self_attn(x, x, mask), p, self.training))
        h = F.dropout(F.gelu(self.fc1(x)), p, self.training)
        return self.final_layer_norm(x + F.dropout(self.fc2(h), p, self.training))


class DecoderLayer(nn.Module):
    def __init__(self):
        super().__init__()
        self.self_attn = Attention()
        self.self_attn_layer_norm = nn.LayerNorm(D, eps=1e-5)
        self.encoder_attn = Attention()
        self.encoder_attn_layer_norm = nn.LayerNorm(D, eps=1e-5)
        self.fc1 = nn.Linear(D, FFN)
        self.fc2 = nn.Linear(FFN, D)
        self.final_layer_norm = nn.LayerNorm(D, eps=1e-5)

    def forward(self, x, enc, smask, cmask, p):
        x = self.self_attn_layer_norm(x + F.dropout(self.self_attn(x, x, smask), p, self.training))
        x = self.encoder_attn_layer_norm(x + F.dropout(self.encoder_attn(x, enc, cmask), p, self.training))
        h = F.dropout(F.gelu(self.fc1(x)), p, self.training)
        return self.final_layer_norm(x + F.dropout(self.fc2(h), p, self.training))


class Stack(nn.Module):
    def __init__(self, layer):
        super().__init__()
        self.embed_positions = nn.Embedding(MAXPOS, D)
        self.layernorm_embedding = nn.LayerNorm(D, eps=1e-5)
        self.layers = nn.ModuleList([layer()])


class Core(nn.Module):
    def __init__(self):
        super().__init__()
        self.shared = nn.Embedding(VOCAB, D, padding_idx=PAD)
        self.encoder = Stack(EncoderLayer)
        self.decoder = Stack(DecoderLayer)


class G2P(nn.Module):
    def __init__(self, dropout=0.1):
        super().__init__()
        self.model = Core()
        self.logits_bias = nn.Parameter(torch.zeros(N_OUT))
        self.p = dropout
        for mod in self.modules():  # small initial weights keep the tied logits near zero
            if isinstance(mod, (nn.Linear, nn.Embedding)):
                nn.init.normal_(mod.weight, std=0.02)
            if isinstance(mod, nn.Linear):
                nn.init.zeros_(mod.bias)

    def encode(self, src):
        m = self.model
        T = src.shape[1]
        pos = torch.arange(T) + 2
        x = m.encoder.layernorm_embedding(m.shared(src) + m.encoder.embed_positions(pos))
        x = F.dropout(x, self.p, self.training)
        mask = torch.zeros(src.shape, dtype=torch.float).masked_fill(src == PAD, -1e9)[:, None, None, :]
        return m.encoder.layers[0](x, mask, self.p), mask

    def decode(self, tgt_in, enc, cmask):
        m = self.model
        T = tgt_in.shape[1]
        pos = torch.arange(T) + 2
        x = m.decoder.layernorm_embedding(m.shared(tgt_in) + m.decoder.embed_positions(pos))
        x = F.dropout(x, self.p, self.training)
        causal = torch.full((T, T), -1e9).triu(1)[None, None]
        x = m.decoder.layers[0](x, enc, causal, cmask, self.p)
        return x @ m.shared.weight[:N_OUT].t() + self.logits_bias

    def forward(self, src, tgt_in):
        enc, cmask = self.encode(src)
        return self.decode(tgt_in, enc, cmask)


def batches(pairs, size, shuffle, rng):
    order = sorted(range(len(pairs)), key=lambda i: (len(pairs[i][0]), rng.random() if shuffle else 0))
    chunks = [order[i:i + size] for i in range(0, len(order), size)]
    if shuffle:
        rng.shuffle(chunks)
    for ch in chunks:
        src = [enc_ids(pairs[i][0]) for i in ch]
        tgt = [dec_ids(pairs[i][1]) for i in ch]
        S = max(map(len, src))
        T = max(map(len, tgt)) + 1
        s = torch.full((len(ch), S), PAD, dtype=torch.long)
        ti = torch.full((len(ch), T), PAD, dtype=torch.long)
        to = torch.full((len(ch), T), PAD, dtype=torch.long)
        for j, (a, b) in enumerate(zip(src, tgt)):
            s[j, :len(a)] = torch.tensor(a)
            ti[j, :len(b) + 1] = torch.tensor([BOS] + b)
            to[j, :len(b) + 1] = torch.tensor(b + [EOS])
        yield ch, s, ti, to


@torch.no_grad()
def greedy(model, words, cap=True):
    model.eval()
    src = torch.full((len(words), max(1, max(len(enc_ids(w)) for w in words))), PAD, dtype=torch.long)
    for j, w in enumerate(words):
        ids = enc_ids(w)
        src[j, :len(ids)] = torch.tensor(ids)
    enc, cmask = model.encode(src)
    out = torch.full((len(words), 1), BOS, dtype=torch.long)
    done = torch.zeros(len(words), dtype=torch.bool)
    # No pronunciation runs much past twice its spelling; an untrained model would otherwise run to the cap.
    for _ in range(min(MAX_STEPS, 2 * src.shape[1] + 4) if cap else MAX_STEPS):
        logits = model.decode(out, enc, cmask)[:, -1]
        nxt = logits.argmax(-1)
        nxt[done] = PAD
        out = torch.cat([out, nxt[:, None]], 1)
        done |= nxt == EOS
        if done.all():
            break
    res = []
    for row in out[:, 1:].tolist():
        s = ''
        for t in row:
            if t == EOS or t == PAD:
                break
            if PH_OFF <= t < GR_OFF:
                s += PHONEMES[t - PH_OFF]
        res.append(s)
    return res


def edit(a, b):
    prev = list(range(len(b) + 1))
    for i, ca in enumerate(a, 1):
        cur = [i]
        for j, cb in enumerate(b, 1):
            cur.append(min(prev[j] + 1, cur[j - 1] + 1, prev[j - 1] + (ca != cb)))
        prev = cur
    return prev[-1]


def error_rates(model, pairs):
    errs = total = wrong = 0
    for i in range(0, len(pairs), 512):
        chunk = pairs[i:i + 512]
        for (w, ref), hyp in zip(chunk, greedy(model, [w for w, _ in chunk])):
            e = edit(hyp, ref)
            errs += e
            total += len(ref)
            wrong += e > 0
    return errs / total, wrong / len(pairs)


def train(args):
    torch.manual_seed(1234)
    rng = random.Random(1234)
    torch.set_num_threads(args.threads)
    data = load_pairs()
    print(f"train {len(data['train'])} valid {len(data['valid'])} test {len(data['test'])}", flush=True)
    model = G2P(args.dropout)
    opt = torch.optim.AdamW(model.parameters(), lr=args.lr, betas=(0.9, 0.98), weight_decay=0.01)
    ckpt = os.path.join(args.out, 'g2p.pt')
    state = {'step': 0, 'seconds': 0.0, 'best': None, 'log': []}
    os.makedirs(args.out, exist_ok=True)
    if os.path.exists(ckpt):
        c = torch.load(ckpt)
        model.load_state_dict(c['model'])
        opt.load_state_dict(c['opt'])
        state = c['state']
        rng.setstate(c['rng'])
        torch.set_rng_state(c['torch_rng'])
        print(f"resumed at step {state['step']} ({state['seconds'] / 60:.1f} min)", flush=True)
    elif args.continue_shipped:
        state = continue_from_shipped(model)
        print(f"continuing the shipped weights from step {state['step']} ({state['seconds'] / 60:.1f} min)", flush=True)
    print(f"parameters: {sum(p.numel() for p in model.parameters())}", flush=True)
    valid = data['valid'][:500]
    start = time.time() - state['seconds']
    deadline = time.time() + args.max_minutes * 60

    def stream():
        while True:
            yield from batches(data['train'], args.batch, True, rng)

    tot, n = 0.0, 0
    model.train()
    for _, s, ti, to in stream():
        if state['step'] >= args.steps or time.time() > deadline:
            break
        state['step'] += 1
        lr = args.lr * min(state['step'] / args.warmup, (args.warmup / state['step']) ** 0.5)
        # Fresh optimiser moments on trained weights: ease back in over a hundred steps.
        if state.get('rewarm_from') is not None:
            lr *= min(1.0, (state['step'] - state['rewarm_from']) / 100)
        for g in opt.param_groups:
            g['lr'] = lr
        logits = model(s, ti)
        loss = F.cross_entropy(logits.reshape(-1, N_OUT), to.reshape(-1), ignore_index=PAD,
                               label_smoothing=args.smoothing)
        opt.zero_grad()
        loss.backward()
        torch.nn.utils.clip_grad_norm_(model.parameters(), 1.0)
        opt.step()
        tot += loss.item()
        n += 1
        if state['step'] % 50 == 0:
            print(f"step {state['step']} loss {tot / n:.4f} {(time.time() - start) / 60:.1f} min", flush=True)
        if state['step'] % args.eval_every == 0:
            checkpoint(args, model, opt, state, rng, start, tot / n, valid)
            tot, n = 0.0, 0
            model.train()
    if n:
        checkpoint(args, model, opt, state, rng, start, tot / n, valid)


def checkpoint(args, model, opt, state, rng, start, loss, valid):
    state['seconds'] = time.time() - start
    per, wer = error_rates(model, valid)
    line = (f"step {state['step']} loss {loss:.4f} valid PER {per:.4f} WER {wer:.4f} "
            f"({state['seconds'] / 60:.1f} min)")
    state['log'].append(line)
    print(line, flush=True)
    if state['best'] is None or per < state['best']:
        state['best'] = per
        torch.save(model.state_dict(), os.path.join(args.out, 'g2p_best.pt'))
    ckpt = os.path.join(args.out, 'g2p.pt')
    torch.save({'model': model.state_dict(), 'opt': opt.state_dict(), 'state': state,
                'rng': rng.getstate(), 'torch_rng': torch.get_rng_state()}, ckpt + '.tmp')
    os.replace(ckpt + '.tmp', ckpt)


def read_safetensors(path):
    with open(path, 'rb') as f:
        n = struct.unpack('<Q', f.read(8))[0]
        header = json.loads(f.read(n))
        data = f.read()
    out = {}
    for name, info in header.items():
        if name == '__metadata__':
            continue
        a, b = info['data_offsets']
        values = struct.unpack(f'<{(b - a) // 4}f', data[a:b])
        out[name] = torch.tensor(values, dtype=torch.float32).reshape(info['shape'])
    return out


def continue_from_shipped(model):
    """Training goes on from the weights in resources/speech when the checkpoint is gone:
    the step count and the log come from the training record beside them, so the learning
    rate's schedule and the record carry on where they stopped."""
    tensors = read_safetensors(os.path.join(DATA, 'bart_g2p.safetensors'))
    tensors['logits_bias'] = tensors.pop('final_logits_bias')[0]
    model.load_state_dict(tensors)
    lines = open(os.path.join(DATA, 'bart_g2p_training.txt')).read().splitlines()
    log = [l for l in lines if l.startswith('step ')]
    last = log[-1].split()
    minutes = float(last[-2].lstrip('('))
    step = int(last[1])
    return {'step': step, 'seconds': minutes * 60, 'best': None, 'log': log, 'rewarm_from': step}


def write_safetensors(path, tensors, metadata=None):
    header, blobs, off = ({'__metadata__': metadata} if metadata else {}), [], 0
    for name, t in tensors.items():
        b = t.detach().contiguous().to(torch.float32).numpy().astype('<f4').tobytes()
        header[name] = {'dtype': 'F32', 'shape': list(t.shape), 'data_offsets': [off, off + len(b)]}
        blobs.append(b)
        off += len(b)
    h = json.dumps(header, separators=(',', ':')).encode()
    h += b' ' * (-len(h) % 8)
    with open(path, 'wb') as f:
        f.write(struct.pack('<Q', len(h)))
        f.write(h)
        for b in blobs:
            f.write(b)


def export(args):
    model = G2P()
    model.load_state_dict(torch.load(os.path.join(args.out, 'g2p_best.pt')))
    model.eval()
    sd = model.state_dict()
    tensors = {}
    for k, v in sd.items():
        if k == 'logits_bias':
            continue
        tensors[k] = v
    tensors['final_logits_bias'] = model.logits_bias.detach()[None]
    write_safetensors(os.path.join(DATA, 'bart_g2p.safetensors'), tensors)
    config = {'grapheme_chars': SPECIALS + [''] * (GR_OFF - PH_OFF) + list(GRAPHEMES),
              'phoneme_chars': SPECIALS + list(PHONEMES),
              'pad_token_id': PAD, 'decoder_start_token_id': BOS, 'eos_token_id': EOS,
              'num_heads': HEADS, 'd_model': D, 'ffn_dim': FFN, 'max_input': MAX_IN,
              'beam_width': 4, 'length_penalty': 0.0, 'rescore_lm': False}
    with open(os.path.join(DATA, 'bart_g2p_config.json'), 'w', encoding='utf-8') as f:
        json.dump(config, f, ensure_ascii=False, indent=1)
        f.write('\n')
    # The C++ inference is checked against these: per-step logits of teacher-forced greedy answers.
    words = ['zorblax', 'quixotically', 'zyx', 'photosynthesising', 'a']
    parity = []
    with torch.no_grad():
        for w, hyp in zip(words, greedy(model, words, cap=False)):
            src = torch.tensor([enc_ids(w)])
            tgt = torch.tensor([[BOS] + dec_ids(hyp)])
            logits = model(src, tgt)[0]
            parity.append({'word': w, 'phonemes': hyp,
                           'logits': [[round(x, 6) for x in row] for row in logits.tolist()]})
    with open(os.path.join(DATA, 'bart_g2p_parity.json'), 'w', encoding='utf-8') as f:
        json.dump(parity, f, ensure_ascii=False)
        f.write('\n')
    c = torch.load(os.path.join(args.out, 'g2p.pt'))
    with open(os.path.join(DATA, 'bart_g2p_training.txt'), 'w') as f:
        f.write('The letters-to-phonemes model: tools/train_g2p.py, two cores, seed 1234.\n')
        f.write(f"Training time: {c['state']['seconds'] / 60:.1f} minutes, {c['state']['step']} steps of {args.batch} words.\n")
        f.write('\n'.join(c['state']['log']) + '\n')
    print('exported', flush=True)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('--out', default=os.path.join(ROOT, 'build', 'g2p'))
    ap.add_argument('--max-minutes', type=float, default=60)
    ap.add_argument('--steps', type=int, default=40000)
    ap.add_argument('--eval-every', type=int, default=250)
    ap.add_argument('--batch', type=int, default=128)
    ap.add_argument('--lr', type=float, default=2e-3)
    ap.add_argument('--warmup', type=int, default=600)
    ap.add_argument('--threads', type=int, default=1)  # two spinning threads lose to a loaded machine
    ap.add_argument('--dropout', type=float, default=0.1)
    ap.add_argument('--smoothing', type=float, default=0.1)
    ap.add_argument('--export-only', action='store_true')
    ap.add_argument('--continue-shipped', action='store_true',
                    help='with no checkpoint in --out, go on from the weights in resources/speech')
    args = ap.parse_args()
    if not args.export_only:
        train(args)
    export(args)


if __name__ == '__main__':
    main()
