"""Compares the library's base64 with Python's: every length up to 300, and one large input."""
import base64
import random
import subprocess
import sys

data = random.Random(20261124).randbytes(1 << 20) + bytes(range(256)) * 4
lengths = [*range(301), len(data)]
lines = subprocess.run([sys.argv[1], *map(str, lengths)], input=data, stdout=subprocess.PIPE, check=True)
got = lines.stdout.split(b"\n")[:-1]
want = [base64.b64encode(data[:length]) for length in lengths for _ in range(2)]
wrong = [i for i, (a, b) in enumerate(zip(got, want, strict=True)) if a != b]
print(f"{len(want)} encodings compared, {len(wrong)} differ: {wrong[:10]}")
sys.exit(bool(wrong))
