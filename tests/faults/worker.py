# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Runs inside a sandbox: reads one request per line, a JSON object, and answers each with
one. See answer()."""
from __future__ import annotations

import dataclasses
import json
import sys
from typing import Any

from tests.faults.endurance import ENDURANCE
from tests.faults.inject import Fault, Laboratory
from tests.faults.scenes import SCENES


def answer(laboratory: Laboratory, request: dict[str, Any]) -> Any:
    if "calls" in request:
        return [(call.key, call.text) for call in laboratory.calls(SCENES[request["calls"]])]
    if "faults" in request:
        if request["faults"] in ENDURANCE:
            return [dataclasses.astuple(fault) for fault in ENDURANCE[request["faults"]].faults]
        faults = laboratory.faults(SCENES[request["faults"]])
        return [dataclasses.astuple(fault) for fault in faults]
    fault = Fault(*request["fault"])
    if fault.scene in ENDURANCE:
        result = ENDURANCE[fault.scene].make(laboratory, fault)
    else:
        result = laboratory.make(fault)
    end = result.end
    assert end is not None
    return {
        "problems": result.problems, "reached": result.reached, "notes": result.notes,
        "status": end.status, "lines": [line.text for line in end.lines], "output": end.output,
        "calls": [call.text for call in end.calls] if request.get("verbose") else [],
    }


def main() -> None:
    laboratory = Laboratory()
    for line in sys.stdin:
        print(json.dumps(answer(laboratory, json.loads(line))), flush=True)


if __name__ == "__main__":
    main()
