"""helion-promote against a running helion-host: every RPC method, its output and exit status."""
import json
import os
import pwd
import unittest

from hostfixture import (DEV_PRIVATE_KEY, PORTAL_ROOT, PROMOTE, SAMPLE_PORTAL, SharedHostTestCase,
                         envelope, portal, promote, run, tree, write_tree)

OK, FAILED, USAGE, UNREACHABLE = 0, 1, 2, 3
SUCCESS = envelope(0, "successful")


class PortalMethods(SharedHostTestCase):
    def call(self, *args, **kwargs):
        return promote(self.host.endpoint, *args, **kwargs)

    def assertAnswer(self, result, status, answer):
        self.assertEqual((result.returncode, result.stdout.strip()), (status, answer), result.stderr)

    def test_install_copy_delete(self):
        # Relative paths in a directory whose name needs JSON escaping: the client resolves them.
        where = os.path.join(self.work, 'we"ird\\ dir \u00fc')
        os.makedirs(where)
        for args in (("pack", SAMPLE_PORTAL, "-o", "portal.zip"),
                     ("sign", "--key", DEV_PRIVATE_KEY, "portal.zip")):
            self.assertEqual(portal(*args, cwd=where).returncode, OK)
        name = self.portal_dir("journey")
        self.assertAnswer(self.call("update-portal", "--zip", "portal.zip", "--sig",
                                    "portal.zip.sig", "--dir", name, cwd=where), OK, SUCCESS)
        self.assertEqual(tree(os.path.join(PORTAL_ROOT, name)), tree(SAMPLE_PORTAL))
        self.assertIn("updatePortal success", self.host.log())
        source = write_tree(os.path.join(self.work, "unpacked"),
                            {"a.css": b"a", "b.js": b"b", "sub/c.png": b"c"})
        copied = self.portal_dir("copy")
        self.assertAnswer(self.call("copy-portal-dir", "--src", source, "--dir", copied), OK, SUCCESS)
        self.assertEqual(tree(os.path.join(PORTAL_ROOT, copied)),
                         {"a.css": b"a", os.path.join("sub", "c.png"): b"c"})
        self.assertFalse(os.path.exists(source))

        self.assertAnswer(self.call("del-portal-dir", name, copied, "never-installed"), OK, SUCCESS)
        self.assertEqual([os.path.exists(os.path.join(PORTAL_ROOT, n)) for n in (name, copied)],
                         [False, False])
        # --force sends what looks like a slip as it stands.
        via, forced = self.portal_dir("via"), self.portal_dir("forced")
        write_tree(PORTAL_ROOT, {via + "/f": b"", forced + "/f": b""})
        self.assertAnswer(self.call("del-portal-dir", "--force", via + "/../" + forced), OK, SUCCESS)
        self.assertFalse(os.path.exists(os.path.join(PORTAL_ROOT, forced)))

    def test_slips_are_refused_and_nothing_is_sent(self):
        write_tree(self.work, {"p.zip": b"zip", "p.sig": b"s" * 256, "short.sig": b"x" * 255})
        package, signature, short = (os.path.join(self.work, n)
                                     for n in ("p.zip", "p.sig", "short.sig"))
        keep = self.portal_dir("keep")
        os.makedirs(os.path.join(PORTAL_ROOT, keep))
        absent = os.path.join(self.work, "absent.zip")
        root, leaves = "names the whole portal root", "has a '..' component and may leave the portal root"
        cases = [  # (arguments, exit status, the error)
            (["del-portal-dir", keep, ""], USAGE, "the portal directory '' " + root),
            (["del-portal-dir", "."], USAGE, "the portal directory '.' " + root),
            (["del-portal-dir", "/"], USAGE, root),
            (["del-portal-dir", ".//./"], USAGE, root),
            (["del-portal-dir", ".."], USAGE, "the portal directory '..' " + leaves),
            (["del-portal-dir", keep + "/../.."], USAGE, leaves),
            (["copy-portal-dir", "--src", self.work, "--dir", ""], USAGE, root),
            (["update-portal", "--zip", package, "--sig", signature, "--dir", "a/../b"], USAGE, leaves),
            (["update-portal", "--zip", absent, "--sig", signature, "--dir", keep], FAILED,
             "cannot use the package '%s': No such file or directory" % absent),
            (["update-portal", "--zip", self.work, "--sig", signature, "--dir", keep], FAILED,
             "cannot use the package '%s': not a regular file" % self.work),
            (["update-portal", "--zip", package, "--sig", short, "--dir", keep], FAILED,
             "cannot use the signature '%s': it has 255 bytes, fewer than 256" % short),
        ]
        for args, status, error in cases:
            with self.subTest(args=args):
                result = self.call(*args)
                self.assertEqual((result.returncode, result.stdout), (status, ""), result.stderr)
                self.assertTrue(result.stderr.startswith("helion-promote: error: "), result.stderr)
                self.assertIn(error, result.stderr)
                self.assertIn("nothing was sent", result.stderr)
        self.assertTrue(os.path.isdir(os.path.join(PORTAL_ROOT, keep)))

    def test_raw_call_process_and_tool_methods(self):
        self.assertAnswer(self.call("call", "updatePortal", "{not json"), FAILED,
                          envelope(3, "req json error"))
        self.assertAnswer(self.call("call", "delPortalDir", '{"portalDirs":[]}'), OK, SUCCESS)
        cases = [
            (["process", "1"], {"code": 12, "message": "not support impl",
                                "processInfo": [{"pid": 0, "procName": "", "procPath": ""}]}),
            (["processes"], {"code": 12, "message": "not support impl", "processInfo": []}),
            (["process", "--", "-1"], {"code": 10, "message": "invalid pid", "processInfo": []}),
        ]
        for args, answer in cases:
            result = self.call(*args)
            self.assertEqual((result.returncode, json.loads(result.stdout)), (FAILED, answer))
        for command in ("ping", "start-diagnosis-tool", "relaunch-tool"):
            self.assertAnswer(self.call(command), OK, '{"result":true}')

    def test_usage_errors_and_unreachable_hosts_call_nothing(self):
        unreachable = [("unix:" + os.path.join(self.work, "absent.sock"), "cannot reach the host"),
                       ("tcp:127.0.0.1:1", "cannot reach the host")]
        # Directories another user could have planted, each leading to a live host.
        nobody = pwd.getpwnam("nobody").pw_uid
        for name, mode, owner, says in (("theirs", 0o755, nobody, "belongs to another user"),
                                        ("open", 0o777, 0, "all users may write to it"),
                                        ("sticky", 0o1777, 0, "all users may write to it"),
                                        ("shared", 0o775, 0, "its group may write to it"),
                                        ("via", 0o700, 0, "'%s/theirs' (owner nobody (uid %d))"
                                         % (self.work, nobody))):
            where = os.path.join(self.work, name)
            os.mkdir(where)
            os.symlink(self.host.socket if name != "via" else self.work + "/theirs/s", where + "/s")
            os.chown(where, owner, -1)
            os.chmod(where, mode)
            unreachable.append(("unix:%s/s" % where, says))
        cases = [(args, USAGE, None) for args in (
            [], ["update-portal", "--zip", "a.zip", "--dir", "x"], ["process", "abc"],
            ["call", "getProcessData", "{}"], ["--connect", "carrier-pigeon:x", "ping"])]
        for args, status, says in cases + [(["--connect", e, "ping"], UNREACHABLE, says)
                                           for e, says in unreachable]:
            with self.subTest(args=args):
                result = run(PROMOTE, *args)
                self.assertEqual((result.returncode, result.stdout), (status, ""), result.stderr)
                if status == UNREACHABLE:  # one line, no trace
                    self.assertEqual(len(result.stderr.strip().splitlines()), 1, result.stderr)
                    self.assertIn(says, result.stderr)

    def test_default_endpoint_follows_the_runtime_directory(self):
        runtime = os.path.join(self.work, "runtime")
        os.makedirs(os.path.join(runtime, "helion"))
        os.symlink(self.host.socket, os.path.join(runtime, "helion", "promote.sock"))
        self.assertAnswer(run(PROMOTE, "ping", env=dict(os.environ, XDG_RUNTIME_DIR=runtime)), OK,
                          '{"result":true}')


if __name__ == "__main__":
    unittest.main()
