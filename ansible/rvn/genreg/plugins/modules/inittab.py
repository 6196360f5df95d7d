#!/usr/bin/python
DOCUMENTATION = r"""
module: inittab
short_description: Lines of an inittab file
version_added: "1.0.0"
description:
  - Adds, changes and removes entries of a file of lines C(id:run levels:action:command).
options:
  id:
    description:
      - The id of the entry.
    type: str
  run_levels:
    description:
      - Its run levels, in quotes; may be empty.
      - A new entry needs them.
    type: str
  action:
    description:
      - C(respawn), C(wait), C(once), C(off) and so on; may be empty.
      - A new entry needs one.
    type: str
  command:
    description:
      - Its command; may be empty.
      - A new entry needs one.
    type: str
  comment:
    description:
      - Its comment, without the C(#). An empty text takes it away.
    type: str
extends_documentation_fragment:
  - rvn.genreg.genreg
  - rvn.genreg.genreg.file
  - rvn.genreg.genreg.value
"""

EXAMPLES = r"""
- name: The daemon is started again whenever it ends
  rvn.genreg.inittab:
    path: /etc/inittab
    id: rvn
    run_levels: "2345"
    action: respawn
    command: /opt/rvn/bin/daemon --foreground

- name: And now it is off
  rvn.genreg.inittab:
    path: /etc/inittab
    id: rvn
    action: "off"
"""

RETURN = r"""
changes:
  description:
    - What was done to each record, as C(genreg) tells it, C(before) and C(after) included. A record that was to be absent and is
      not there is left out.
  returned: success
  type: list
  elements: dict
  sample:
    - schema: 1
      operation: inittab set
      path: /etc/inittab
      type: inittab
      id: rvn
      action: change
      before: {line: 1, runLevels: "2345", action: respawn, command: /opt/x, comment: null, text: "rvn:2345:respawn:/opt/x"}
      after: {runLevels: "2345", action: "off", command: /opt/x, comment: null, text: "rvn:2345:off:/opt/x"}
      changed: true
      dryRun: false
remarks:
  description: What C(genreg) remarked.
  returned: always
  type: list
  elements: dict
rc:
  description: The exit status of C(genreg).
  returned: failure
  type: int
  sample: 5
genreg_error:
  description: The failure as C(genreg) tells it. C(kind), C(exit) and C(code) are for programs, C(message) and C(hint) for people.
  returned: failure
  type: dict
"""

from ansible_collections.rvn.genreg.plugins.module_utils.genreg import Form, run

FORM = Form(
    "inittab",
    ["id"],
    dict(
        run_levels=dict(type="str"), action=dict(type="str"), command=dict(type="str"), comment=dict(type="str")
    ),
)


if __name__ == "__main__":
    run(FORM)
