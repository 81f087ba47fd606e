"""What zoctl says of a driver file's signature: by whom it is signed, whether the signer's certificate is one for
drivers, and whether the file was changed since.

Arguments: the emulator's command line and zoctl.exe."""

import subprocess

from sealed_tree import BUILT, SealedTreeTest

TESTED, ATTESTED = (f"extendedKeyUsage=1.3.6.1.4.1.311.10.3.5{end},codeSigning" for end in ("", ".1"))
MALFORMED = "2.5.29.37=DER:0500"
FOREIGN = "not by Microsoft for drivers; Windows is not likely to load the driver"


class DriverSignatureTest(SealedTreeTest):
    def certificate(self, name, *options):
        """The files of a key and its certificate."""
        key, certificate = self.folder / f"{name}.key", self.folder / f"{name}.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", certificate,
                        "-subj", f"/CN={name}", *options], check=True, capture_output=True)
        return key, certificate

    def signed_driver(self, purposes):
        """A driver file with the signature of a certificate for these purposes, an extension as openssl takes it."""
        issuer_key, issuer = self.certificate("Issuer")
        key, certificate = self.certificate("Maker", "-CA", issuer, "-CAkey", issuer_key, "-addext",
                                            "basicConstraints=CA:FALSE", "-addext", purposes)
        driver = self.folder / "signed.sys"
        driver.unlink(missing_ok=True)
        subprocess.run(["osslsigncode", "sign", "-h", "sha256", "-certs", certificate, "-ac", issuer, "-key", key,
                        "-in", BUILT / "ZoProtectorDriver.sys", "-out", driver], check=True, capture_output=True)
        return driver

    def install(self, driver):
        signature = self.facts(0, "driver", "install", driver)["signature"]
        self.zoctl(0, "driver", "uninstall")
        return signature

    def test_names_the_signer_and_knows_certificates_for_drivers(self):
        foreign, known = ("unlikely", f"signed by Maker, {FOREIGN}"), ("likely", "signed by Maker")
        for purposes, (loads, finding) in {"extendedKeyUsage=codeSigning": foreign, MALFORMED: foreign, TESTED: known,
                                           ATTESTED: known}.items():
            with self.subTest(purposes):
                self.assertEqual(self.install(self.signed_driver(purposes)),
                                 {"signer": "Maker", "loads": loads, "finding": finding})

    def test_notices_a_change_after_signing(self):
        driver = self.signed_driver(TESTED)
        changed = bytearray(driver.read_bytes())
        changed[0x600] ^= 1
        driver.write_bytes(changed)
        self.assertEqual(self.install(driver), {"signer": None, "loads": "unlikely",
                                                "finding": "the file was changed after it was signed"})
