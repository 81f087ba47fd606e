#!/usr/bin/env python3
"""verify_manifest.py TREE MANIFEST PUBLIC_KEY: checks a sealed tree by docs/manifest-format.md alone, with openssl.

Written to prove that the page suffices, and used by the tests as a second opinion. Prints each finding and exits with 1
if there is one; exits with 2 and a message if the manifest is not to be believed. Names are taken as they are, letter
case included, as case-sensitive file systems have them."""
import hashlib, os, subprocess, sys, tempfile

tree, manifest_path, key_path = (os.fsencode(os.path.abspath(argument)) for argument in sys.argv[1:4])
work = tempfile.TemporaryDirectory()
os.chdir(tree)
blob = open(key_path, 'rb').read()
size = int.from_bytes(blob[8:12], 'little')
key = ('asn1=SEQUENCE:all\n[all]\ntype=SEQUENCE:type\nkey=BITWRAP,SEQUENCE:key\n'
       '[type]\noid=OID:rsaEncryption\nnull=NULL\n'
       f'[key]\nmodulus=INTEGER:0x{blob[24 + size:].hex()}\nexponent=INTEGER:0x{blob[24:24 + size].hex()}\n')


def openssl(arguments, name, contents, **more):
    open(os.path.join(work.name, name), 'wb').write(contents)
    command = ['openssl', *arguments.split(), name]
    return subprocess.run(command, cwd=work.name, capture_output=True, **more).returncode == 0


def holds(digest, signature):
    return openssl('pkeyutl -verify -pubin -keyform DER -inkey key.der -pkeyopt digest:sha256 -sigfile', 'sig',
                   signature, input=digest)


def require(condition, message):  # an assert statement would be gone under "python3 -O"
    if not condition:
        print(message, file=sys.stderr)
        sys.exit(2)


require(openssl('asn1parse -noout -out key.der -genconf', 'key.txt', key.encode()), 'not a public key')
magic, signature_line, body = open(manifest_path, 'rb').read().split(b'\n', 2)
require(magic == b'ZOSIG1' and signature_line.startswith(b'MSIG '), 'not a manifest')
require(holds(hashlib.sha256(magic + b'\n' + body).digest(), bytes.fromhex(signature_line[5:].decode())), 'tampered')
header, lines = body.split(b'\n----\n', 1)
header = dict(line.split(b' ', 1) for line in header.split(b'\n'))
require(header[b'ALG'] == b'RSA-2048-PKCS1-SHA256', 'unknown algorithm')
require(header[b'PUB'].decode() == hashlib.sha256(blob).hexdigest(), 'names another key')

listed, sealed, findings, lines = set(), [], [], iter(lines.split(b'\n'))
for kind, path in ((line[:2], line[2:]) for line in lines):
    if kind == b'D ':
        sealed += [path[2:]] if path.startswith(b'S ') else []
        path = path[2:]
    values = dict(next(lines).split() for _ in range(3)) if kind == b'F ' else {}
    if kind in (b'F ', b'K ') and not os.path.isfile(path):
        findings.append(b'missing ' + path)
    elif values:
        digest = hashlib.sha256(open(path, 'rb').read()).digest()
        listed_digest, signature = (bytes.fromhex(values[name].decode()) for name in (b'HASH', b'SIG'))
        findings += [] if digest == listed_digest and holds(digest, signature) else [b'bad ' + path]
    listed.add(path)
for directory in sealed:
    try:
        names = os.listdir(directory)
    except (FileNotFoundError, NotADirectoryError):
        names = []
    except OSError:  # it may hold anything
        findings.append(b'unseen ' + directory)
        names = []
    for name in names:
        path = name if directory == b'.' else directory + b'/' + name
        is_link = os.path.islink(path) and os.path.abspath(path) != manifest_path
        if path not in listed and (is_link or not os.path.samefile(path, manifest_path)):
            findings.append(b'extra ' + path)
print(*(finding.decode(errors='replace') for finding in findings), sep='\n')
sys.exit(1 if findings else 0)
