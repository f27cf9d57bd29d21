"""helion-promote against a running helion-host: every RPC method, its output and exit status."""
import json
import os
import unittest

from hostfixture import (PORTAL_ROOT, PROMOTE, SAMPLE_PORTAL, SharedHostTestCase, envelope,
                         error_lines, promote, run, tree, write_tree)

OK, FAILED, USAGE, UNREACHABLE = 0, 1, 2, 3


class PortalMethods(SharedHostTestCase):
    def call(self, *args, **kwargs):
        return promote(self.host.endpoint, *args, **kwargs)

    def install(self, name, package, signature, **kwargs):
        return self.call("update-portal", "--zip", package, "--sig", signature, "--dir", name,
                         **kwargs)

    def test_signed_package_is_installed_as_packed(self):
        package, signature = self.signed_sample()
        name = self.portal_dir("install")
        result = self.install(name, package, signature)
        self.assertEqual((result.returncode, result.stdout.strip()), (OK, envelope(0, "successful")),
                         result.stderr)
        self.assertEqual(tree(os.path.join(PORTAL_ROOT, name)), tree(SAMPLE_PORTAL))
        self.assertIn("updatePortal success", self.host.log())

    def test_tampered_package_is_refused_and_installed_portal_kept(self):
        package, signature = self.signed_sample()
        name = self.portal_dir("tamper")
        self.assertEqual(self.install(name, package, signature).returncode, OK)
        installed = tree(os.path.join(PORTAL_ROOT, name))

        with open(package, "r+b") as handle:
            handle.seek(40)
            byte = handle.read(1)
            handle.seek(40)
            handle.write(bytes([byte[0] ^ 0x01]))
        result = self.install(name, package, signature)
        self.assertEqual((result.returncode, result.stdout.strip()),
                         (FAILED, envelope(1, "verify signature error")))
        self.assertEqual(tree(os.path.join(PORTAL_ROOT, name)), installed)

    def test_missing_package_is_a_signature_failure(self):
        _, signature = self.signed_sample()
        result = self.install(self.portal_dir("missing"), os.path.join(self.work, "nope.zip"),
                              signature)
        self.assertEqual((result.returncode, json.loads(result.stdout)["code"]), (FAILED, 1))

    def test_paths_that_need_json_escaping_reach_the_module_intact(self):
        odd = os.path.join(self.work, 'we"ird\\ dir \u00fc')
        package, signature = self.signed_sample(odd)
        name = self.portal_dir("escaped")
        result = self.install(name, package, signature)
        self.assertEqual(result.returncode, OK, result.stdout + result.stderr)
        self.assertEqual(tree(os.path.join(PORTAL_ROOT, name)), tree(SAMPLE_PORTAL))

    def test_relative_paths_are_resolved_by_the_client(self):
        package, signature = self.signed_sample()
        name = self.portal_dir("relative")
        result = self.install(name, os.path.basename(package), os.path.basename(signature),
                              cwd=os.path.dirname(package))
        self.assertEqual(result.returncode, OK, result.stdout + result.stderr)

    def test_copy_moves_resource_files_only_and_removes_the_source(self):
        source = write_tree(os.path.join(self.work, "unpacked"),
                            {"a.css": b"a", "b.js": b"b", "sub/c.png": b"c"})
        name = self.portal_dir("copy")
        result = self.call("copy-portal-dir", "--src", source, "--dir", name)
        self.assertEqual((result.returncode, result.stdout.strip()), (OK, envelope(0, "successful")),
                         result.stderr)
        self.assertEqual(tree(os.path.join(PORTAL_ROOT, name)),
                         {"a.css": b"a", os.path.join("sub", "c.png"): b"c"})
        self.assertFalse(os.path.exists(source))

        result = self.call("copy-portal-dir", "--src", source, "--dir", name)
        self.assertEqual((result.returncode, result.stdout.strip()),
                         (FAILED, envelope(7, "source file not exist")))

    def test_delete_removes_listed_directories_and_skips_missing_ones(self):
        first, second = self.portal_dir("del"), self.portal_dir("del")
        for name in (first, second):
            os.makedirs(os.path.join(PORTAL_ROOT, name, "inner"))
        result = self.call("del-portal-dir", first, second, "never-installed")
        self.assertEqual((result.returncode, result.stdout.strip()), (OK, envelope(0, "successful")))
        self.assertFalse(os.path.exists(os.path.join(PORTAL_ROOT, first)))
        self.assertFalse(os.path.exists(os.path.join(PORTAL_ROOT, second)))

    def test_empty_directory_name_is_refused_before_anything_is_sent(self):
        keep = self.portal_dir("keep")
        os.makedirs(os.path.join(PORTAL_ROOT, keep))
        result = self.call("del-portal-dir", keep, "")
        self.assertEqual((result.returncode, result.stdout), (USAGE, ""))
        self.assertTrue(os.path.isdir(os.path.join(PORTAL_ROOT, keep)))

    def test_raw_call_passes_the_text_unchanged(self):
        result = self.call("call", "updatePortal", "{not json")
        self.assertEqual((result.returncode, result.stdout.strip()),
                         (FAILED, envelope(3, "req json error")))
        result = self.call("call", "delPortalDir", '{"portalDirs":[]}')
        self.assertEqual((result.returncode, result.stdout.strip()), (OK, envelope(0, "successful")))


class ProcessAndToolMethods(SharedHostTestCase):
    def call(self, *args):
        return promote(self.host.endpoint, *args)

    def test_process_queries_report_not_supported(self):
        result = self.call("process", "1")
        self.assertEqual(result.returncode, FAILED)
        self.assertEqual(json.loads(result.stdout),
                         {"code": 12, "message": "not support impl",
                          "processInfo": [{"pid": 0, "procName": "", "procPath": ""}]})

        result = self.call("processes")
        self.assertEqual((result.returncode, json.loads(result.stdout)),
                         (FAILED, {"code": 12, "message": "not support impl", "processInfo": []}))
        result = self.call("process", "--", "-1")
        self.assertEqual((result.returncode, json.loads(result.stdout)),
                         (FAILED, {"code": 10, "message": "invalid pid", "processInfo": []}))

    def test_tool_and_liveness_methods_answer_booleans(self):
        for command in ("ping", "start-diagnosis-tool", "relaunch-tool"):
            with self.subTest(command=command):
                result = self.call(command)
                self.assertEqual((result.returncode, result.stdout.strip()),
                                 (OK, '{"result":true}'), result.stderr)


class UsageAndReachability(SharedHostTestCase):
    def test_usage_errors_exit_2_without_calling(self):
        cases = [
            [],
            ["update-portal", "--zip", "a.zip", "--dir", "x"],
            ["process", "abc"],
            ["call", "getProcessData", "{}"],
            ["no-such-command"],
        ]
        for args in cases:
            with self.subTest(args=args):
                result = promote(self.host.endpoint, *args)
                self.assertEqual(result.returncode, USAGE, result.stderr)
                self.assertEqual(result.stdout, "")
        result = run(PROMOTE, "--connect", "carrier-pigeon:x", "ping")
        self.assertEqual(result.returncode, USAGE)
        self.assertEqual(len(error_lines(result.stderr, "helion-promote")), 1)

    def test_every_subcommand_has_help(self):
        for command in ("update-portal", "copy-portal-dir", "del-portal-dir", "process", "processes",
                        "start-diagnosis-tool", "relaunch-tool", "ping", "call"):
            with self.subTest(command=command):
                result = run(PROMOTE, command, "--help")
                self.assertEqual(result.returncode, OK)
                self.assertIn("Usage:", result.stdout)

    def test_unreachable_host_exits_3_with_one_line(self):
        for endpoint in ("unix:" + os.path.join(self.work, "absent.sock"), "tcp:127.0.0.1:1"):
            with self.subTest(endpoint=endpoint):
                result = run(PROMOTE, "--connect", endpoint, "ping")
                self.assertEqual(result.returncode, UNREACHABLE)
                self.assertEqual(result.stdout, "")
                self.assertEqual(len(result.stderr.strip().splitlines()), 1, result.stderr)
                self.assertIn("cannot reach the host", result.stderr)

    def test_default_endpoint_follows_the_runtime_directory(self):
        runtime = os.path.join(self.work, "runtime")
        os.makedirs(os.path.join(runtime, "helion"))
        os.symlink(self.host.socket, os.path.join(runtime, "helion", "promote.sock"))
        env = dict(os.environ, XDG_RUNTIME_DIR=runtime)
        result = run(PROMOTE, "ping", env=env)
        self.assertEqual((result.returncode, result.stdout.strip()), (OK, '{"result":true}'),
                         result.stderr)


if __name__ == "__main__":
    unittest.main()
