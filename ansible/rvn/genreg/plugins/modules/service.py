#!/usr/bin/python
DOCUMENTATION = r"""
module: service
short_description: Installed copies in the global registry
version_added: "1.0.0"
description:
  - Adds, changes and removes service records of the global registry, which are the installed copies of a product.
    The instances of a copy are left, and have a module of their own.
options:
  service:
    description:
      - The name of the service.
    type: str
  version_code:
    description:
      - Its version, in quotes, as in C('9.7.0.2').
    type: str
  service_path:
    description:
      - Where it is installed. An empty text takes it away.
    type: str
  service_alt_path:
    description:
      - Another path of it. An empty text takes it away.
    type: str
  service_text:
    description:
      - A text about it. An empty text takes it away.
    type: str
  fixpack_number:
    description:
      - The number of its fixpack. An empty text takes it away.
    type: raw
  service_number1:
    description:
      - A number. An empty text takes it away.
    type: raw
  service_flag:
    description:
      - A single letter or digit. An empty text takes it away.
    type: raw
  service_number2:
    description:
      - A number. An empty text takes it away.
    type: raw
  service_number3:
    description:
      - A number. An empty text takes it away.
    type: raw
extends_documentation_fragment:
  - rvn.genreg.genreg
  - rvn.genreg.genreg.registry
"""

EXAMPLES = r"""
- name: The copy is recorded
  rvn.genreg.service:
    service: RVN
    version_code: "9.7.0.2"
    service_path: /opt/rvn/V9.7
    fixpack_number: 2
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
      operation: service set
      path: /var/rvn/global.reg
      type: service
      service: RVN
      versionCode: 9.7.0.2
      action: add
      before: null
      after: {servicePath: /opt/rvn/V9.7, fixpackNumber: 2}
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
    "service",
    ["service", "version_code"],
    dict(
        service_path=dict(type="str"),
        service_alt_path=dict(type="str"),
        service_text=dict(type="str"),
        fixpack_number=dict(type="raw"),
        service_number1=dict(type="raw"),
        service_flag=dict(type="raw"),
        service_number2=dict(type="raw"),
        service_number3=dict(type="raw"),
    ),
    is_global=True,
    has_value=False,
)


if __name__ == "__main__":
    run(FORM)
