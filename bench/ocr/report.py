#!/usr/bin/env python3
"""Turns the figures of bench/ocr/run.sh into a Markdown report with the targets.

report.py WORK SAME_IMAGES SAME_IMAGES_AFTER PAGES JOBS
"""
import collections
import csv
import os
import re
import sys

work, jobs = sys.argv[1], sys.argv[5]
same, same_after, pages = (int(a) for a in sys.argv[2:5])
rows = {}
with open(os.path.join(work, "results.tsv")) as f:
    for r in csv.DictReader(f, delimiter="\t"):
        rows[r["label"]] = {k: float(v) for k, v in r.items() if k != "label"}


def words(path):
    """The words of a text file: runs of letters and digits, lower case, ligatures undone."""
    with open(path, encoding="utf-8", errors="replace") as f:
        text = f.read().replace("\ufb01", "fi").replace("\ufb02", "fl").lower()
    return collections.Counter(re.findall(r"[a-z0-9]+", text))


def accuracy(label):
    """Share of the ground truth's words (with their counts) that the tool's text holds."""
    found = total = 0
    for name in sorted(os.listdir(os.path.join(work, "truth"))):
        truth = words(os.path.join(work, "truth", name))
        read = words(os.path.join(work, label, name))
        total += sum(truth.values())
        found += sum(min(n, read[w]) for w, n in truth.items())
    return found / total if total else 0.0


plain, ours, after, theirs = rows["plain"], rows["ours"], rows["after"], rows["theirs"]
acc_ours, acc_after, acc_theirs = accuracy("ours"), accuracy("after"), accuracy("theirs")
ocr_seconds = ours["wall_s"] - plain["wall_s"]


def row(name, r, acc):
    return (f"| {name} | {acc:.1%} | {r['wall_s'] / pages:.2f} | {r['user_s'] / pages:.2f} | "
            f"{r['out_bytes'] / 1e6:.2f} ({r['out_bytes'] / plain['out_bytes']:.3f}x) | "
            f"{r['maxrss_kb'] / 1024:.0f} |")


def verdict(ok):
    return "met" if ok else "NOT met"


print(f"{pages} scans of real text pages (300 dpi, grey LZW and G4 in turn, skewed, noisy), "
      f"tesseract `eng`, {jobs} cores.\n")
print("| run | word accuracy | wall s/page | CPU s/page | output MB (vs without text) | "
      "peak RSS MB |")
print("|---|---|---|---|---|---|")
print(f"| pagewright-batch convert, no text | - | {plain['wall_s'] / pages:.2f} | "
      f"{plain['user_s'] / pages:.2f} | {plain['out_bytes'] / 1e6:.2f} | "
      f"{plain['maxrss_kb'] / 1024:.0f} |")
print(row("pagewright-batch convert --ocr eng", ours, acc_ours))
print(row("pagewright-batch ocr on the PDFs without text", after, acc_after))
print(row(f"ocrmypdf --jobs {jobs} on the PDFs without text", theirs, acc_theirs))
print()
print(f"- word accuracy at least ocrmypdf's: {acc_ours:.1%} vs {acc_theirs:.1%}: "
      f"{verdict(acc_ours >= acc_theirs)}")
ratio = ours["wall_s"] / theirs["wall_s"]
print(f"- wall time at most 0.6x ocrmypdf's: {ratio:.2f}x "
      f"(ocrmypdf's time excludes making its input): {verdict(ratio <= 0.6)}")
ratio = after["wall_s"] / theirs["wall_s"]
print(f"- the same work afterwards, `ocr` on the same PDFs as ocrmypdf: {ratio:.2f}x, "
      f"accuracy {acc_after:.1%}: {verdict(ratio <= 0.6 and acc_after >= acc_theirs)}")
size = ours["out_bytes"] / plain["out_bytes"]
print(f"- output at most 1.02x ours without text: {size:.3f}x: {verdict(size <= 1.02)}")
files = len([n for n in os.listdir(os.path.join(work, "plain")) if n.endswith(".pdf")])
print(f"- page images byte-identical to the conversion without text: {same} of {files} files "
      f"with --ocr, {same_after} of {files} after `ocr`: "
      f"{verdict(same == files and same_after == files)}")
