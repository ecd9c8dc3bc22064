#!/usr/bin/python3
"""Builds the house faces (Archivo, IBM Plex Mono) as TTF files for resources/fonts.

Debian packages neither face. npm's @fontsource packages carry them as WOFF2 under the
SIL Open Font License, split by Unicode range; this joins the Latin and Latin Extended
ranges of each weight into one TTF and gives it a clean name table (fontsource's static
instances carry the variable font's instance names, e.g. "Archivo SemiBold" for 400).

Run from the repository root with Debian's python3-fonttools and python3-brotli:
    /usr/bin/python3 tools/make-fonts.py
It fetches the two packages with `npm pack` into a temporary folder.
"""
import glob
import os
import shutil
import subprocess
import sys
import tempfile

from fontTools.merge import Merger
from fontTools.ttLib import TTFont

PACKAGES = {"Archivo": ("@fontsource/archivo@5.3.0", "archivo", [400, 500, 600, 700]),
            "IBM Plex Mono": ("@fontsource/ibm-plex-mono@5.3.0", "ibm-plex-mono", [400, 500, 700])}
STYLE = {400: "Regular", 500: "Medium", 600: "SemiBold", 700: "Bold"}
RANGES = ["latin", "latin-ext"]


def rename(font, family, weight):
    style = STYLE[weight]
    ribbi = style in ("Regular", "Bold")
    postscript = family.replace(" ", "") + "-" + style
    names = font["name"]
    names.names = [n for n in names.names if n.nameID not in (1, 2, 3, 4, 6, 16, 17)]
    # Legacy family/style pairs hold only Regular/Bold; other weights carry their
    # weight in the family, with the typographic names alongside.
    names.setName(family if ribbi else f"{family} {style}", 1, 3, 1, 0x409)
    names.setName(style if ribbi else "Regular", 2, 3, 1, 0x409)
    names.setName(f"Tavorin build;{postscript}", 3, 3, 1, 0x409)
    names.setName(f"{family} {style}", 4, 3, 1, 0x409)
    names.setName(postscript, 6, 3, 1, 0x409)
    names.setName(family, 16, 3, 1, 0x409)
    names.setName(style, 17, 3, 1, 0x409)
    font["OS/2"].usWeightClass = weight
    font["OS/2"].fsSelection = (font["OS/2"].fsSelection & ~0b1100001) | (0b100000 if style == "Bold" else 0b1000000)
    font["head"].macStyle = 1 if style == "Bold" else 0


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    out = os.path.join(root, "resources", "fonts")
    os.makedirs(out, exist_ok=True)
    with tempfile.TemporaryDirectory() as work:
        for family, (package, stem, weights) in PACKAGES.items():
            subprocess.run(["npm", "pack", "--silent", package], cwd=work, check=True, stdout=subprocess.DEVNULL)
            tgz = glob.glob(os.path.join(work, f"fontsource-{stem}-*.tgz"))[0]
            unpacked = os.path.join(work, stem)
            os.makedirs(unpacked)
            subprocess.run(["tar", "-xzf", tgz, "-C", unpacked], check=True)
            files = os.path.join(unpacked, "package", "files")
            shutil.copy(os.path.join(unpacked, "package", "LICENSE"), os.path.join(out, f"{family.replace(' ', '')}-OFL.txt"))
            for weight in weights:
                parts = []
                for r in RANGES:
                    font = TTFont(os.path.join(files, f"{stem}-{r}-{weight}-normal.woff2"))
                    font.flavor = None
                    part = os.path.join(work, f"{stem}-{r}-{weight}.ttf")
                    font.save(part)
                    parts.append(part)
                merged = Merger().merge(parts)
                rename(merged, family, weight)
                target = os.path.join(out, f"{family.replace(' ', '')}-{STYLE[weight]}.ttf")
                merged.save(target)
                print(target)


if __name__ == "__main__":
    sys.exit(main())
