#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Keeps daemon/manifest.schema.json in step with emd's validation: each manifest of the table
is checked by `emd --check` (exit 0 or 3) and by the schema, and both must give the row's
verdict. Rows marked EMD_ONLY hold what a schema cannot see (files, states and groups named,
dependencies, duplicate members, 1.0 for 1): the schema accepts them and emd refuses them.
Usage: manifest_schema_agrees.py <emd> <schema>"""
import json
import os
import subprocess
import sys
import tempfile

import jsonschema

VALID, REFUSED, EMD_ONLY = "valid", "refused", "emd only"
BASE = {"$schema": "manifest.schema.json",
        "functionGroups": {"MachineFG": {"states": ["Running", "Down"], "initialState": "Running",
                                         "onFailure": "Down"},
                           "Demo": {"states": ["Off", "On"], "initialState": "Off"}},
        "processes": {"db": {"executable": "/bin/true", "arguments": ["-v"], "environment": {"A": "b=c"},
                             "workingDirectory": "/", "functionGroup": "MachineFG", "states": ["Running"],
                             "startupTimeoutMs": 1, "terminationTimeoutMs": 3600000, "readiness": "notify",
                             "watchdogMs": 0, "restart": {"maxRestarts": 1000, "backoffMs": 0,
                                                          "backoffMaxMs": 3600000, "windowMs": 86400000}},
                      "app": {"executable": "/bin/true", "functionGroup": "MachineFG", "states": ["Running"],
                              "dependsOn": {"db": "running"}}}}


def at(path, value):
    """A change that sets the member at `path` (names separated by '/'); None removes it."""
    def change(doc):
        *parents, last = path.split("/")
        for name in parents:
            doc = doc[name]
        if value is None:
            del doc[last]
        else:
            doc[last] = value
    return change


def text(old, new):
    """A change of the manifest's text."""
    return lambda doc: json.dumps(doc).replace(old, new, 1)


P = "processes/db/"
ROWS = [  # verdict, change, the place and problem emd names
    (VALID, lambda doc: None, ""),
    (VALID, at("processes", {}), ""),
    (VALID, at(P + "restart", {}), ""),
    (VALID, at("processes/box", {"executable": "/bin/true", "functionGroup": "Demo", "states": ["On"],
                                  "user": "nobody", "group": 65534, "supplementaryGroups": ["adm", 0],
                                  "umask": "0027", "noNewPrivileges": True, "cpuAffinity": [0],
                                  "capabilities": {"bounding": ["CAP_NET_BIND_SERVICE"],
                                                   "ambient": ["CAP_NET_BIND_SERVICE"]},
                                  "limits": {"nofile": 64, "core": "infinity", "stack": 0},
                                  "scheduling": {"policy": "fifo", "priority": 99}}), ""),
    (REFUSED, lambda doc: doc.clear(), "/functionGroups: missing member"),
    (REFUSED, at("extra", 1), "/extra: unknown member"),
    (REFUSED, at("$schema", 1), "/$schema: expected a text"),
    (REFUSED, at("functionGroups/MachineFG", None), "/functionGroups/MachineFG: missing member"),
    (REFUSED, at("functionGroups/", BASE["functionGroups"]["Demo"]), "/functionGroups/: empty name"),
    (REFUSED, at("functionGroups/Demo/states", []), "/functionGroups/Demo/states: expected at least one state"),
    (REFUSED, at("functionGroups/Demo/states", ["Off", "Off"]), "/functionGroups/Demo/states/1: duplicate state"),
    (REFUSED, at("functionGroups/Demo/states", ["Off", ""]), "/functionGroups/Demo/states/1: empty name"),
    (REFUSED, at("functionGroups/Demo/initialState", None), "/functionGroups/Demo/initialState: missing member"),
    (REFUSED, at("functionGroups/Demo/x", 1), "/functionGroups/Demo/x: unknown member"),
    (REFUSED, at("processes/", BASE["processes"]["app"]), "/processes/: empty name"),
    (REFUSED, at(P + "cwd", "/"), "/processes/db/cwd: unknown member"),
    (REFUSED, at(P + "executable", None), "/processes/db/executable: missing member"),
    (REFUSED, at(P + "executable", "bin/true"), "/processes/db/executable: expected an absolute path"),
    (REFUSED, at(P + "arguments", [1]), "/processes/db/arguments/0: expected a text"),
    (REFUSED, at(P + "environment", {"A=": "b"}), "/processes/db/environment/A=: expected a name without '='"),
    (REFUSED, at(P + "environment", {"A": 1}), "/processes/db/environment/A: expected a text"),
    (REFUSED, at(P + "states", []), "/processes/db/states: expected at least one state"),
    (REFUSED, at(P + "startupTimeoutMs", 0), "/processes/db/startupTimeoutMs: expected a whole number"),
    (REFUSED, at(P + "terminationTimeoutMs", 3600001), "/processes/db/terminationTimeoutMs: expected a whole"),
    (REFUSED, at(P + "watchdogMs", -1), "/processes/db/watchdogMs: expected a whole number"),
    (REFUSED, at(P + "watchdogMs", "5"), "/processes/db/watchdogMs: expected a whole number"),
    (REFUSED, at(P + "restart/maxRestarts", 1001), "/processes/db/restart/maxRestarts: expected a whole number"),
    (REFUSED, at(P + "restart/windowMs", 86400001), "/processes/db/restart/windowMs: expected a whole number"),
    (REFUSED, at(P + "restart/every", 1), "/processes/db/restart/every: unknown member"),
    (REFUSED, at(P + "readiness", "ready"), "/processes/db/readiness: expected report, notify or spawn"),
    (VALID, at(P + "cgroup", {"memoryMax": 4096, "cpuMax": {"quotaUs": 1000, "periodUs": 1000000}, "pidsMax": 1,
                              "required": False}), ""),
    (REFUSED, at(P + "cgroup", {"cpuMax": {"periodUs": 1000}}), "/processes/db/cgroup/cpuMax/quotaUs: missing member"),
    (REFUSED, at(P + "cgroup", {"memoryMax": 4095}), "/processes/db/cgroup/memoryMax: expected a whole number"),
    (REFUSED, at(P + "cgroup", {"pidsMax": 4194305}), "/processes/db/cgroup/pidsMax: expected a whole number"),
    (REFUSED, at("processes/app/dependsOn/db", "up"), "/processes/app/dependsOn/db: expected running or"),
    (REFUSED, at(P + "user", ""), "/processes/db/user: unknown user"),
    (REFUSED, at(P + "umask", "0089"), "/processes/db/umask: expected an octal mask"),
    (REFUSED, at(P + "limits", {"nofile": -1}), "/processes/db/limits/nofile: expected a whole number"),
    (REFUSED, at(P + "limits", {"cpu": 1}), "/processes/db/limits/cpu: unknown member"),
    (REFUSED, at(P + "cpuAffinity", [1024]), "/processes/db/cpuAffinity/0: expected a whole number from 0 to 1023"),
    (REFUSED, at(P + "capabilities", {"ambient": ["NET_RAW"]}), "/processes/db/capabilities/ambient/0: unknown"),
    (REFUSED, at(P + "scheduling", {"policy": "fifo", "nice": 1}), "/processes/db/scheduling/nice: a real-time"),
    (REFUSED, at(P + "scheduling", {"policy": "other", "priority": 1}), "/processes/db/scheduling/priority: only"),
    (REFUSED, at(P + "scheduling", {"policy": "other", "nice": 20}), "/processes/db/scheduling/nice: expected a"),
    (VALID, at(P + "output", "null"), ""),
    (VALID, at(P + "output", "file:/tmp/db.log"), ""),
    (REFUSED, at(P + "output", "syslog"), "/processes/db/output: expected log, inherit, null or file:/absolute/path"),
    (REFUSED, at(P + "output", "file:db.log"), "/processes/db/output: expected an absolute path of a file after"),
    (EMD_ONLY, text('"db": {', '"db": {"readiness": "spawn", '), "/processes/db/readiness: duplicate member"),
    (EMD_ONLY, at(P + "watchdogMs", 1.0), "/processes/db/watchdogMs: expected a whole number"),
    (EMD_ONLY, text('"watchdogMs": 0', '"watchdogMs": 1e3'), "/processes/db/watchdogMs: expected a whole number"),
    (EMD_ONLY, at(P + "user", "no-such-user"), "/processes/db/user: unknown user no-such-user"),
    (EMD_ONLY, at(P + "supplementaryGroups", ["no-such-group"]), "/processes/db/supplementaryGroups/0: unknown group"),
    (EMD_ONLY, at(P + "capabilities", {"bounding": ["CAP_NO_SUCH"]}), "/processes/db/capabilities/bounding/0: unknown"),
    (EMD_ONLY, at(P + "capabilities", {"bounding": [], "ambient": ["CAP_CHOWN"]}),
     "/processes/db/capabilities/ambient/0: not in the bounding set"),
    (EMD_ONLY, at("functionGroups/Demo/initialState", "Dim"), "/functionGroups/Demo/initialState: unknown state"),
    (EMD_ONLY, at("functionGroups/Demo/onFailure", "Dim"), "/functionGroups/Demo/onFailure: unknown state"),
    (EMD_ONLY, at(P + "executable", "/no/such/file"), "/processes/db/executable: no such file or directory"),
    (EMD_ONLY, at(P + "executable", "/"), "/processes/db/executable: is a directory"),
    (EMD_ONLY, at(P + "executable", "/etc/passwd"), "/processes/db/executable: not executable"),
    (EMD_ONLY, at(P + "workingDirectory", "/bin/true"), "/processes/db/workingDirectory: not a directory"),
    (EMD_ONLY, at(P + "functionGroup", "Nav"), "/processes/db/functionGroup: unknown function group"),
    (EMD_ONLY, at(P + "states", ["Off"]), "/processes/db/states/0: unknown state"),
    (EMD_ONLY, at(P + "output", "file:/no/such/db.log"), "/processes/db/output: no such directory: /no/such"),
    (EMD_ONLY, at(P + "output", "file:/tmp"), "/processes/db/output: is a directory"),
    (EMD_ONLY, at(P + "restart", {"backoffMs": 10, "backoffMaxMs": 5}), "/processes/db/restart/backoffMaxMs: below the"),
    (EMD_ONLY, at("processes/app/dependsOn/x", "running"), "/processes/app/dependsOn/x: unknown process"),
    (EMD_ONLY, at("processes/app/dependsOn/app", "running"), "/processes/app/dependsOn/app: a process cannot"),
    (EMD_ONLY, at(P + "states", ["Down"]), "/processes/app/dependsOn/db: db does not run in state Running of"),
    (EMD_ONLY, at(P + "dependsOn", {"app": "running"}), "/processes/db/dependsOn/app: dependency cycle: db -> app"),
    (EMD_ONLY, at("processes/x", dict(BASE["processes"]["app"], dependsOn={"db": "terminated"})),
     "/processes/x/dependsOn/db: db is needed terminated here but running by app"),
]


def main(emd, schema_path):
    with open(schema_path, encoding="utf-8") as f:
        validator = jsonschema.Draft202012Validator(json.load(f))
    validator.check_schema(validator.schema)
    failures = 0
    with tempfile.TemporaryDirectory() as work:
        path = os.path.join(work, "m.json")
        for number, (verdict, change, place) in enumerate(ROWS):
            doc = json.loads(json.dumps(BASE))
            changed = change(doc)
            manifest = changed if isinstance(changed, str) else json.dumps(doc)
            with open(path, "w", encoding="utf-8") as f:
                f.write(manifest)
            run = subprocess.run([emd, "--manifest", path, "--check", "--log", "none"], capture_output=True, text=True)
            verdicts = (run.returncode == 0, validator.is_valid(json.loads(manifest)))  # emd, schema
            if verdicts != (verdict == VALID, verdict != REFUSED) or run.returncode not in (0, 3) or \
                    f"{path}: {place}" not in run.stderr + path + ": ":
                failures += 1
                print(f"row {number} ({verdict}, {place}): emd exit {run.returncode} {run.stderr.strip()!r}, schema "
                      f"{'accepts' if verdicts[1] else 'refuses'}\n  {manifest}")
    print(f"{len(ROWS) - failures} of {len(ROWS)} rows agree")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
