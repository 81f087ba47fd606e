"""The server's own certificate, made at its first start in a folder and used again as long as it lasts."""

import datetime
import ipaddress
import os

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import rsa
from cryptography.x509.oid import ExtendedKeyUsageOID, NameOID

WRONG_HOST = "wrong-host.invalid"
_LIFETIME = datetime.timedelta(days=397)
_ONE_DAY = datetime.timedelta(days=1)


def _make(names, key):
    now = datetime.datetime.utcnow()
    subject = x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, names[0].value),
                         x509.NameAttribute(NameOID.ORGANIZATION_NAME, "Crash server of the simulator")])
    usage = x509.KeyUsage(digital_signature=True, key_encipherment=True, key_cert_sign=True, crl_sign=False,
                          content_commitment=False, data_encipherment=False, key_agreement=False, encipher_only=False,
                          decipher_only=False)
    return (x509.CertificateBuilder().subject_name(subject).issuer_name(subject).public_key(key.public_key())
            .serial_number(x509.random_serial_number())
            .not_valid_before(now - _ONE_DAY).not_valid_after(now + _LIFETIME)
            .add_extension(x509.SubjectAlternativeName(names), critical=False)
            .add_extension(x509.BasicConstraints(ca=True, path_length=0), critical=True)
            .add_extension(usage, critical=True)
            .add_extension(x509.ExtendedKeyUsage([ExtendedKeyUsageOID.SERVER_AUTH]), critical=False)
            .sign(key, hashes.SHA256()))


def _still_good(certificate_path, key_path):
    if not certificate_path.exists() or not key_path.exists():
        return False
    certificate = x509.load_pem_x509_certificate(certificate_path.read_bytes())
    return certificate.not_valid_after > datetime.datetime.utcnow() + _ONE_DAY


def prepare(folder, wrong_host=False):
    """Paths of certificate and key in PEM; beside them the certificate in DER, for those who are to trust it."""
    stem = "wrong-host" if wrong_host else "certificate"
    certificate_path, key_path = folder / f"{stem}.pem", folder / f"{stem}.key"
    if _still_good(certificate_path, key_path):
        return certificate_path, key_path
    key = rsa.generate_private_key(public_exponent=65537, key_size=2048)
    # Wine's Internet functions look for an address among the DNS names.
    names = [x509.DNSName(WRONG_HOST)] if wrong_host else [
        x509.DNSName("localhost"), x509.DNSName("127.0.0.1"), x509.IPAddress(ipaddress.ip_address("127.0.0.1")),
        x509.IPAddress(ipaddress.ip_address("::1"))]
    certificate = _make(names, key)
    with open(os.open(key_path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "wb") as file:
        file.write(key.private_bytes(serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
                                     serialization.NoEncryption()))
    certificate_path.write_bytes(certificate.public_bytes(serialization.Encoding.PEM))
    (folder / f"{stem}.der").write_bytes(certificate.public_bytes(serialization.Encoding.DER))
    return certificate_path, key_path
