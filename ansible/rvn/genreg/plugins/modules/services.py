#!/usr/bin/python
DOCUMENTATION = r"""
module: services
short_description: Lines of a services file
version_added: "1.0.0"
description:
  - Adds, changes and removes services of a file that looks like C(/etc/services). A line that is changed keeps
    its place, and what is not named its bytes.
options:
  name:
    description:
      - The service.
    type: str
  protocol:
    description:
      - C(tcp), C(udp) and so on. Where a service of the name stands there once, its own is meant.
      - A new service needs one.
    type: str
  port:
    description:
      - Its port.
      - A new service needs one.
    type: int
  aliases:
    description:
      - Its other names. An empty list takes them away.
    type: list
    elements: str
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
- name: A service of two protocols
  rvn.genreg.services:
    path: /etc/services
    name: rvnd
    port: 7000
    aliases: [rvn, registry]
    items:
      - protocol: tcp
      - protocol: udp

- name: It is gone
  rvn.genreg.services:
    path: /etc/services
    name: gopher
    state: absent
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
      operation: services set
      path: /etc/services
      type: services
      name: rvnd
      protocol: tcp
      action: add
      before: null
      after: {port: 7000, aliases: [rvn, registry], comment: null, text: "rvnd\t\t7000/tcp\trvn registry"}
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
    "services",
    ["name", "protocol"],
    dict(port=dict(type="int"), aliases=dict(type="list", elements="str"), comment=dict(type="str")),
    needed=["name"],
)


if __name__ == "__main__":
    run(FORM)
