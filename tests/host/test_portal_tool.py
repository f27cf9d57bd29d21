"""helion-portal: keys the build accepts, reproducible packages, signatures the module accepts."""
import os
import subprocess
import tempfile
import time
import unittest
import zipfile

from hostfixture import (DEV_PRIVATE_KEY, DEV_PUBLIC_KEY, SAMPLE_PORTAL, SOURCE_DIR, HostTestCase,
                         portal, tree, write_tree)

OK, NO, USAGE = 0, 1, 2


def cmake_accepts_public_key(path):
    """Runs the build's own key check on path."""
    with tempfile.NamedTemporaryFile("w", suffix=".cmake") as script:
        script.write('include("%s/cmake/HelionBuildConstants.cmake")\nhelion_check_public_key("%s")\n'
                     % (SOURCE_DIR, path))
        script.flush()
        result = subprocess.run(["cmake", "-P", script.name], capture_output=True, text=True,
                                timeout=60)
    return result.returncode == 0


class Keygen(HostTestCase):
    def test_key_pair_in_a_directory(self):
        out = os.path.join(self.tmp, "keys")
        self.assertEqual(portal("keygen", "-o", out).returncode, OK)
        public = os.path.join(out, "portal-public.pem")
        private = os.path.join(out, "portal-private.pem")
        with open(public) as handle:
            self.assertEqual(len(handle.read()), 451)
        self.assertTrue(cmake_accepts_public_key(public))
        self.assertEqual(os.stat(private).st_mode & 0o077, 0, "private key readable by others")

        package = os.path.join(self.tmp, "p.zip")
        self.assertEqual(portal("pack", SAMPLE_PORTAL, "-o", package).returncode, OK)
        self.assertEqual(portal("sign", "--key", private, package).returncode, OK)
        result = portal("verify", "--pub", public, package, package + ".sig")
        self.assertEqual((result.returncode, result.stdout.strip()), (OK, "yes"))
        result = portal("verify", "--pub", DEV_PUBLIC_KEY, package, package + ".sig")
        self.assertEqual(result.returncode, NO)

    def test_named_files_and_no_silent_overwrite(self):
        private = os.path.join(self.tmp, "a.pem")
        public = os.path.join(self.tmp, "b.pem")
        self.assertEqual(portal("keygen", "--private", private, "--public", public).returncode, OK)
        with open(public) as handle:
            first = handle.read()
        result = portal("keygen", "--private", private, "--public", public)
        self.assertEqual(result.returncode, NO)
        self.assertIn("--force", result.stderr)
        self.assertEqual(portal("keygen", "--private", private, "--public", public,
                                "--force").returncode, OK)
        with open(public) as handle:
            self.assertNotEqual(handle.read(), first)

    def test_keygen_needs_a_destination(self):
        self.assertEqual(portal("keygen").returncode, USAGE)
        self.assertEqual(portal("keygen", "--private", "x.pem").returncode, USAGE)


class Pack(HostTestCase):
    def pack(self, source, name):
        package = os.path.join(self.tmp, name)
        result = portal("pack", source, "-o", package)
        self.assertEqual(result.returncode, OK, result.stderr)
        with open(package, "rb") as handle:
            return package, handle.read()

    def make_tree(self, files):
        return write_tree(os.path.join(self.tmp, "tree"), files)

    def test_same_tree_same_bytes(self):
        root = self.make_tree({"b.txt": b"b", "a/z.css": b"z", "a/y/x.svg": b"x", "A.json": b"{}"})
        os.makedirs(os.path.join(root, "empty"))
        _, first = self.pack(root, "1.zip")
        # New timestamps and another creation order must not show in the package.
        for dirpath, _, names in os.walk(root):
            for name in names:
                os.utime(os.path.join(dirpath, name), (time.time() + 3600, time.time() + 3600))
        package, second = self.pack(root, "2.zip")
        self.assertEqual(first, second)

        with zipfile.ZipFile(package) as archive:
            infos = archive.infolist()
            self.assertEqual([i.filename for i in infos], ["A.json", "a/y/x.svg", "a/z.css", "b.txt"])
            self.assertEqual({i.date_time for i in infos}, {(1980, 1, 1, 0, 0, 0)})
            self.assertEqual(archive.read("a/y/x.svg"), b"x")
            self.assertIsNone(archive.testzip())

    def test_package_holds_the_tree(self):
        package, _ = self.pack(SAMPLE_PORTAL, "sample.zip")
        with zipfile.ZipFile(package) as archive:
            packed = {name: archive.read(name) for name in archive.namelist()}
        self.assertEqual(packed, {k.replace(os.sep, "/"): v for k, v in tree(SAMPLE_PORTAL).items()})

    def test_output_inside_the_tree_is_not_packed_into_itself(self):
        root = self.make_tree({"index.html": b"<p>"})
        package = os.path.join(root, "out.zip")
        for _ in range(2):
            self.assertEqual(portal("pack", root, "-o", package).returncode, OK)
        with zipfile.ZipFile(package) as archive:
            self.assertEqual(archive.namelist(), ["index.html"])

    def test_trees_the_module_could_not_take_are_refused(self):
        empty = os.path.join(self.tmp, "empty")
        os.makedirs(os.path.join(empty, "sub"))
        linked = self.make_tree({"index.html": b"<p>"})
        os.symlink("/etc/passwd", os.path.join(linked, "link.css"))
        long_name = os.path.join(self.tmp, "long")
        os.makedirs(os.path.join(long_name, "d" * 200))
        with open(os.path.join(long_name, "d" * 200, "f" * 60 + ".css"), "w") as handle:
            handle.write("x")
        for source, reason in ((empty, "no files"), (linked, "not a regular file"),
                               (long_name, "longer than 255")):
            with self.subTest(reason=reason):
                out = os.path.join(self.tmp, "refused.zip")
                result = portal("pack", source, "-o", out)
                self.assertEqual(result.returncode, NO)
                self.assertIn(reason, result.stderr)
                self.assertFalse(os.path.exists(out))
                self.assertEqual([n for n in os.listdir(self.tmp) if ".tmp-" in n], [])


class SignAndVerify(HostTestCase):
    def setUp(self):
        super().setUp()
        self.package = os.path.join(self.tmp, "p.zip")
        self.assertEqual(portal("pack", SAMPLE_PORTAL, "-o", self.package).returncode, OK)
        self.signature = os.path.join(self.tmp, "p.sig")
        result = portal("sign", "--key", DEV_PRIVATE_KEY, self.package, "-o", self.signature)
        self.assertEqual(result.returncode, OK, result.stderr)

    def verify(self, package=None, signature=None, key=DEV_PUBLIC_KEY):
        return portal("verify", "--pub", key, package or self.package, signature or self.signature)

    def write(self, name, data):
        path = os.path.join(self.tmp, name)
        with open(path, "wb") as handle:
            handle.write(data)
        return path

    def test_signature_is_raw_pkcs1_sha256(self):
        with open(self.signature, "rb") as handle:
            self.assertEqual(len(handle.read()), 256)
        # An independent implementation agrees.
        result = subprocess.run(["openssl", "dgst", "-sha256", "-verify", DEV_PUBLIC_KEY,
                                 "-signature", self.signature, self.package],
                                capture_output=True, text=True, timeout=60)
        self.assertEqual(result.stdout.strip(), "Verified OK", result.stderr)
        self.assertEqual((self.verify().returncode, self.verify().stdout.strip()), (OK, "yes"))

    def test_verdicts_follow_the_module(self):
        with open(self.package, "rb") as handle:
            data = handle.read()
        with open(self.signature, "rb") as handle:
            signature = handle.read()
        tampered = self.write("t.zip", data[:-1] + bytes([data[-1] ^ 1]))
        cases = [
            ("tampered package", tampered, self.signature, NO),
            ("trailing bytes after the signature", None, self.write("long.sig", signature + b"x" * 9), OK),
            ("short signature", None, self.write("short.sig", signature[:255]), NO),
            ("empty signature", None, self.write("empty.sig", b""), NO),
            ("missing signature", None, os.path.join(self.tmp, "absent.sig"), NO),
        ]
        for label, package, sig, expected in cases:
            with self.subTest(label):
                result = self.verify(package, sig)
                self.assertEqual(result.returncode, expected, result.stdout)
                self.assertTrue(result.stdout.startswith("yes" if expected == OK else "no: "))

    def test_empty_package_signs_and_verifies(self):
        empty = self.write("empty.zip", b"")
        self.assertEqual(portal("sign", "--key", DEV_PRIVATE_KEY, empty).returncode, OK)
        self.assertEqual(self.verify(empty, empty + ".sig").stdout.strip(), "yes")

    def test_keys_the_module_cannot_use_are_refused(self):
        small = os.path.join(self.tmp, "small.pem")
        subprocess.run(["openssl", "genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:1024",
                        "-out", small], check=True, capture_output=True, timeout=60)
        result = portal("sign", "--key", small, self.package, "-o", os.path.join(self.tmp, "s.sig"))
        self.assertEqual(result.returncode, NO)
        self.assertIn("RSA-2048", result.stderr)
        result = portal("sign", "--key", DEV_PUBLIC_KEY, self.package)
        self.assertEqual(result.returncode, NO)
        self.assertIn("not a PEM private key", result.stderr)


if __name__ == "__main__":
    unittest.main()
