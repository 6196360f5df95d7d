#!/usr/bin/python
DOCUMENTATION = r"""
module: variable
short_description: Settings in the global registry
version_added: "1.0.0"
description:
  - Adds, changes and removes variable records of the global registry.
options:
  service:
    description:
      - The service that it belongs to.
    type: str
  variable:
    description:
      - Its name.
    type: str
  value:
    description:
      - Its value. An empty text takes it away.
    type: raw
  variable_text:
    description:
      - A text about it. An empty text takes it away.
    type: str
  comment:
    description:
      - Its comment. An empty text takes it away.
    type: str
extends_documentation_fragment:
  - rvn.genreg.genreg
  - rvn.genreg.genreg.registry
  - rvn.genreg.genreg.value
"""

EXAMPLES = r"""
- name: A setting of the service
  rvn.genreg.variable:
    service: RVN
    variable: codepage
    value: utf-8
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
      operation: variable set
      path: /var/rvn/global.reg
      type: variable
      service: RVN
      variable: codepage
      action: add
      before: null
      after: {value: utf-8}
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
    "variable",
    ["service", "variable"],
    dict(value=dict(type="raw"), variable_text=dict(type="str"), comment=dict(type="str")),
    is_global=True,
)


if __name__ == "__main__":
    run(FORM)
