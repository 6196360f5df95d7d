#!/usr/bin/python
DOCUMENTATION = r"""
module: binvar
short_description: Binary files of 32-bit variables
version_added: "1.0.0"
description:
  - Adds, changes and removes variables of a binary file whose records are a name, a number and a comment.
options:
  name:
    description:
      - The variable, of at most 15 bytes.
    type: str
  value:
    description:
      - Its value.
      - A new variable needs one.
    type: int
  comment:
    description:
      - Its comment, of at most 15 bytes. An empty text takes it away.
    type: str
extends_documentation_fragment:
  - rvn.genreg.genreg
  - rvn.genreg.genreg.file
  - rvn.genreg.genreg.value
"""

EXAMPLES = r"""
- name: Two limits
  rvn.genreg.binvar:
    path: /var/rvn/limits
    items:
      - {name: connections, value: 200}
      - {name: threads, value: 16}
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
      operation: binvar set
      path: /var/rvn/limits
      type: binvar
      name: threads
      action: add
      before: null
      after: {value: 16, comment: ""}
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

FORM = Form("binvar", ["name"], dict(value=dict(type="int"), comment=dict(type="str")))


if __name__ == "__main__":
    run(FORM)
