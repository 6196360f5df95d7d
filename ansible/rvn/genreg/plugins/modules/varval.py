#!/usr/bin/python
DOCUMENTATION = r"""
module: varval
short_description: Lines C(variable = value # comment)
version_added: "1.0.0"
description:
  - Adds, changes and removes variables of a file of such lines. A line that is changed keeps its layout and its
    comment.
options:
  name:
    description:
      - The variable.
    type: str
  value:
    description:
      - Its value; C(genreg) puts it in quotes where its blanks need them.
      - A new variable needs one.
    type: raw
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
- name: One variable
  rvn.genreg.varval:
    path: /etc/server.conf
    name: port
    value: 7000
    comment: agreed with the network people

- name: Several with one commit
  rvn.genreg.varval:
    path: /etc/server.conf
    items:
      - {name: timeout, value: 30}
      - {name: retries, value: 3}
      - {name: obsolete, state: absent}

- name: Only if nobody has chosen another value
  rvn.genreg.varval:
    path: /etc/server.conf
    name: mode
    value: fast
    if_value: safe

- name: A secret
  rvn.genreg.varval:
    path: /etc/server.conf
    name: password
    value: "{{ password }}"
  no_log: true
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
      operation: varval set
      path: /etc/server.conf
      type: varval
      name: port
      action: change
      before: {line: 3, value: "6000", comment: null, text: port = 6000}
      after: {value: "7000", comment: null, text: port = 7000}
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

FORM = Form("varval", ["name"], dict(value=dict(type="raw"), comment=dict(type="str")))


if __name__ == "__main__":
    run(FORM)
