"""helion-portal: keys the build accepts, reproducible packages, signatures judged as the module does."""
import hashlib
import os
import pathlib
import subprocess
import tempfile
import time
import unittest
import zipfile

from hostfixture import (DEV_PRIVATE_KEY, DEV_PUBLIC_KEY, PORTAL, PROMOTE, SAMPLE_PORTAL,
                         SOURCE_DIR, HostTestCase, portal, run, write_tree)

OK, NO, USAGE, CANNOT_CHECK = 0, 1, 2, 3


def openssl(*args, stdin=None):
    return subprocess.run(["openssl", *args], input=stdin, capture_output=True, check=True,
                          timeout=60).stdout


class HelionPortal(HostTestCase):
    def test_versions_unknown_subcommands_and_script_arguments(self):
        for program, name in ((PROMOTE, "helion-promote"), (PORTAL, "helion-portal")):
            with self.subTest(program=name):
                result = run(program, "--version")
                self.assertEqual((result.returncode, result.stdout.split()[0]), (OK, name))
                result = run(program, "frobnicate")
                self.assertEqual((result.returncode, "unknown subcommand 'frobnicate'" in
                                  result.stderr), (USAGE, True))
        for script in ("test.sh", "fuzz.sh", "bench.sh", "demo.sh", "valgrind-e2e.sh"):
            with self.subTest(script=script):
                path = os.path.join(SOURCE_DIR, "scripts", script)
                result = run("bash", path, "--help")  # answered before anything is built
                self.assertEqual((result.returncode, "scripts/" + script in result.stdout), (OK, True))
                result = run("bash", path, "--no-such-option")
                self.assertEqual((result.returncode, "'--no-such-option'" in result.stderr),
                                 (USAGE, True))

    def test_key_pair_fingerprint_pack_sign_verify(self):
        out = os.path.join(self.tmp, "keys")
        self.assertEqual(portal("keygen", "-o", out).returncode, OK)
        public, private = (os.path.join(out, "portal-%s.pem" % kind) for kind in ("public", "private"))
        with tempfile.NamedTemporaryFile("w", suffix=".cmake") as script:  # the build takes it
            script.write('include("%s/cmake/HelionBuildConstants.cmake")\n'
                         'helion_check_public_key("%s")\n' % (SOURCE_DIR, public))
            script.flush()
            self.assertEqual(run("cmake", "-P", script.name).returncode, OK)
        self.assertEqual(os.stat(private).st_mode & 0o077, 0, "private key readable by others")
        for key in (public, DEV_PUBLIC_KEY):
            der = openssl("pkey", "-pubin", "-in", key, "-outform", "DER")
            self.assertEqual(portal("fingerprint", "--pub", key).stdout,
                             hashlib.sha256(der).hexdigest() + "\n")

        package = os.path.join(self.tmp, "p.zip")
        self.assertEqual(portal("pack", SAMPLE_PORTAL, "-o", package).returncode, OK)
        for mode, warned in ((0o600, False), (0o640, True), (0o604, True)):
            os.chmod(private, mode)
            result = portal("sign", "--key", private, package)
            self.assertEqual((result.returncode, "'%s' has mode 0%o: group or other users may "
                              "read it" % (private, mode) in result.stderr), (OK, warned))
        result = portal("verify", "--pub", public, package, package + ".sig")
        self.assertEqual((result.returncode, result.stdout), (OK, "yes\n"))

        first = portal("fingerprint", "--pub", public).stdout
        result = portal("keygen", "-o", out)
        self.assertEqual((result.returncode, "--force" in result.stderr), (NO, True))
        self.assertEqual(portal("keygen", "-o", out, "--force").returncode, OK)
        self.assertNotEqual(portal("fingerprint", "--pub", public).stdout, first)
        # keygen needs one destination: a directory, or both files.
        for args in ((), ("--private", "x.pem"), ("--public", "y.pem"),
                     ("-o", out, "--private", "x.pem", "--public", "y.pem")):
            self.assertEqual(portal("keygen", *args, cwd=self.tmp).returncode, USAGE)
        self.assertNotIn("x.pem", os.listdir(self.tmp))
        # One file named twice would keep only the public key; a failed keygen leaves nothing.
        os.symlink("k.pem", os.path.join(self.tmp, "link.pem"))
        before = sorted(os.listdir(self.tmp))
        for private, public, says in (("k.pem", "k.pem", "would be one file"),
                                      ("k.pem", "link.pem", "would be one file"),
                                      (self.tmp + "/k.pem", "./k.pem", "would be one file"),
                                      ("k.pem", "absent/k.pem", "cannot write 'absent/k.pem'")):
            with self.subTest(private=private, public=public):
                result = portal("keygen", "--private", private, "--public", public, cwd=self.tmp)
                self.assertEqual((result.returncode, says in result.stderr), (NO, True))
                self.assertEqual(sorted(os.listdir(self.tmp)), before)

    def test_same_tree_same_bytes_and_refused_trees(self):
        root = write_tree(os.path.join(self.tmp, "tree"),
                          {"b.txt": b"b", "a/z.css": b"z", "a/y/x.svg": b"x", "A.json": b"{}"})
        os.makedirs(os.path.join(root, "empty"))
        package = os.path.join(root, "out.zip")  # inside the tree: never packed into itself
        packed = []
        for _ in range(2):
            self.assertEqual(portal("pack", root, "-o", package).returncode, OK)
            with open(package, "rb") as handle:
                packed.append(handle.read())
            for path in pathlib.Path(root).rglob("*.*"):  # new timestamps must not show
                os.utime(path, (time.time() + 3600,) * 2)
        self.assertEqual(packed[0], packed[1])
        with zipfile.ZipFile(package) as archive:
            infos = archive.infolist()
            self.assertEqual([i.filename for i in infos], ["A.json", "a/y/x.svg", "a/z.css", "b.txt"])
            self.assertEqual({i.date_time for i in infos}, {(1980, 1, 1, 0, 0, 0)})
            self.assertEqual(archive.read("a/y/x.svg"), b"x")
        # Trees the module could not take are refused.
        empty = os.path.join(self.tmp, "empty")
        os.makedirs(os.path.join(empty, "sub"))
        linked = write_tree(os.path.join(self.tmp, "linked"), {"index.html": b"<p>"})
        os.symlink("/etc/passwd", os.path.join(linked, "link.css"))
        # Entry names of 255 bytes are the longest the module extracts.
        at_limit = write_tree(os.path.join(self.tmp, "at-limit"), {"d" * 200 + "/" + "f" * 54: b"x"})
        self.assertEqual(portal("pack", at_limit, "-o", at_limit + ".zip").returncode, OK)
        long_name = write_tree(os.path.join(self.tmp, "long"), {"d" * 200 + "/" + "f" * 55: b"x"})
        for source, reason in ((empty, "no files"), (linked, "not a regular file"),
                               (long_name, "longer than 255")):
            with self.subTest(reason=reason):
                out = os.path.join(self.tmp, "refused.zip")
                result = portal("pack", source, "-o", out)
                self.assertEqual(result.returncode, NO)
                self.assertIn(reason, result.stderr)
                self.assertFalse(os.path.exists(out))
                self.assertEqual([n for n in os.listdir(self.tmp) if ".tmp-" in n], [])

    def write(self, name, data):
        return os.path.join(write_tree(self.tmp, {name: data}), name)

    def test_verdicts_say_why(self):
        data = os.urandom(5 << 19)  # a few read chunks: every chunk must count
        package, ok = self.write("p.zip", data), self.tmp + "/ok.sig"
        self.assertEqual(portal("sign", "--key", DEV_PRIVATE_KEY, package, "-o", ok).returncode, OK)
        with open(ok, "rb") as handle:
            ours = handle.read()
        # An independent implementation makes the same signature (PKCS#1 v1.5 is deterministic).
        self.assertEqual(ours, openssl("dgst", "-sha256", "-sign", DEV_PRIVATE_KEY, package))
        other_key = self.write("other.pem", openssl("genpkey", "-algorithm", "RSA"))
        small_key = self.write("small.pem", openssl("genpkey", "-algorithm", "RSA",
                                                    "-pkeyopt", "rsa_keygen_bits:1024"))
        small_public = self.write("small-pub.pem", openssl("pkey", "-in", small_key, "-pubout"))

        def signed(name, *args, key=DEV_PRIVATE_KEY):
            return self.write(name, openssl("dgst", *args, "-sign", key, package))

        absent = os.path.join(self.tmp, "absent")
        pub = DEV_PUBLIC_KEY
        cases = [  # (label, package, signature, key, exit status, what stdout or stderr says)
            ("ours", package, ok, pub, OK, "yes"),
            ("empty package", self.write("e.zip", b""), self.write("e.sig", openssl(
                "dgst", "-sha256", "-sign", DEV_PRIVATE_KEY, stdin=b"")), pub, OK, "yes"),
            ("trailing bytes", package, self.write("long.sig", ours + b"x" * 9), pub, OK, "yes"),
            ("changed", self.write("t.zip", data[:-1] + bytes([data[-1] ^ 1])), ok, pub, NO,
             "no: the package changed after signing"),
            ("other key", package, signed("k.sig", "-sha256", key=other_key), pub, NO,
             "no: the signature does not open under this key"),
            ("pss", package, signed("pss.sig", "-sha256", "-sigopt", "rsa_padding_mode:pss"), pub,
             NO, "does not open"),
            ("sha1", package, signed("sha1.sig", "-sha1"), pub, NO,
             "no: the signature opens under this key but holds a sha1 digest; packages are "
             "signed over SHA-256"),
            ("bare digest", package, self.write("bare.sig", openssl(
                "pkeyutl", "-sign", "-inkey", DEV_PRIVATE_KEY, stdin=bytes(32))), pub, NO,
             "holds no digest"),
            ("short", package, self.write("short.sig", ours[:255]), pub, NO,
             "no: the signature has 255 bytes; a signature has 256"),
            ("missing signature", package, absent, pub, CANNOT_CHECK,
             "cannot check: cannot read '%s': No such file or directory" % absent),
            ("directory", self.tmp, ok, pub, CANNOT_CHECK, "is a directory"),
            ("private key as public", package, ok, DEV_PRIVATE_KEY, CANNOT_CHECK,
             "not a PEM public"),
            ("1024-bit key", package, ok, small_public, CANNOT_CHECK, "1024 bits"),
        ]
        for label, pkg, sig, key, status, says in cases:
            with self.subTest(label):
                result = portal("verify", "--pub", key, pkg, sig)
                self.assertEqual(result.returncode, status, result.stdout + result.stderr)
                self.assertIn(says, result.stdout if status != CANNOT_CHECK else result.stderr)
                self.assertEqual(result.stdout == "", status == CANNOT_CHECK)
        for key, pkg, says in ((small_key, package, "RSA-2048"),
                               (DEV_PUBLIC_KEY, package, "not a PEM private key"),
                               (other_key, absent, "cannot read '%s'" % absent)):
            with self.subTest(sign_refused=says):
                result = portal("sign", "--key", key, pkg, "-o", self.tmp + "/s.sig")
                self.assertEqual((result.returncode, os.path.exists(self.tmp + "/s.sig")), (NO, False))
                self.assertIn(says, result.stderr)


if __name__ == "__main__":
    unittest.main()
