#!/usr/bin/env python3
"""verify_manifest.py TREE MANIFEST PUBLIC_KEY: checks a sealed tree by docs/manifest-format.md alone, with openssl.

Written to prove that the page suffices, and used by the tests as a second opinion. Prints each finding; exits with 1 if
there is one. It reads case-sensitive file systems and knows no shortcuts or links beyond what the page says."""
import hashlib, os, subprocess, sys, tempfile

tree, manifest_path, key_path = map(os.fsencode, sys.argv[1:4])
blob = open(key_path, 'rb').read()
exponent_size, modulus_size = (int.from_bytes(blob[at:at + 4], 'little') for at in (8, 12))
exponent, modulus = blob[24:24 + exponent_size], blob[24 + exponent_size:][:modulus_size]
work = tempfile.TemporaryDirectory()
public_pem = os.path.join(work.name, 'public.pem')
asn1 = 'asn1=SEQUENCE:key\n[key]\nn=INTEGER:0x%s\ne=INTEGER:0x%s\n' % (modulus.hex(), exponent.hex())
open(os.path.join(work.name, 'key.cnf'), 'w').write(asn1)
subprocess.run(['openssl', 'asn1parse', '-genconf', 'key.cnf', '-out', 'key.der', '-noout'], cwd=work.name, check=True)
subprocess.run(['openssl', 'rsa', '-RSAPublicKey_in', '-inform', 'DER', '-in', 'key.der', '-pubout', '-out', public_pem],
               cwd=work.name, check=True, capture_output=True)


def holds(digest, signature):
    signature_path = os.path.join(work.name, 'signature')
    open(signature_path, 'wb').write(signature)
    return subprocess.run(['openssl', 'pkeyutl', '-verify', '-pubin', '-inkey', public_pem, '-sigfile', signature_path,
                           '-pkeyopt', 'digest:sha256'], input=digest, capture_output=True).returncode == 0


magic, signature_line, body = open(manifest_path, 'rb').read().split(b'\n', 2)
assert magic == b'ZOSIG1' and signature_line.startswith(b'MSIG ')
assert holds(hashlib.sha256(magic + b'\n' + body).digest(), bytes.fromhex(signature_line[5:].decode())), 'tampered'
header, lines = body.split(b'----\n', 1)
header = dict(line.split(b' ', 1) for line in header.splitlines())
assert header[b'ALG'] == b'RSA-2048-PKCS1-SHA256' and header[b'PUB'].decode() == hashlib.sha256(blob).hexdigest()

listed, sealed, findings, lines = set(), [], [], iter(lines.split(b'\n'))
for kind, path in ((line[:2], line[2:]) for line in lines):
    if kind == b'D ':
        sealed += [path[2:]] if path.startswith(b'S ') else []
        path = path[2:]
    elif kind == b'K ' and not os.path.isfile(os.path.join(tree, path)):
        findings.append(b'missing ' + path)
    elif kind == b'F ':
        size, digest, signature = (next(lines).split()[1].decode() for _ in range(3))
        contents = open(os.path.join(tree, path), 'rb').read() if os.path.isfile(os.path.join(tree, path)) else None
        if contents is None:
            findings.append(b'missing ' + path)
        elif hashlib.sha256(contents).hexdigest() != digest or not holds(bytes.fromhex(digest), bytes.fromhex(signature)):
            findings.append(b'bad ' + path)
    listed.add(path)
for directory in filter(lambda path: os.path.isdir(os.path.join(tree, path)), sealed):
    for name in os.listdir(os.path.join(tree, directory)):
        path = name if directory == b'.' else directory + b'/' + name
        if path not in listed and not os.path.samefile(os.path.join(tree, path), manifest_path):
            findings.append(b'extra ' + path)
print(*(finding.decode(errors='replace') for finding in findings), sep='\n')
sys.exit(1 if findings else 0)
