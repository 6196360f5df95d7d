#!/usr/bin/python
DOCUMENTATION = r"""
module: instance
short_description: Instances in the global registry
version_added: "1.0.0"
description:
  - Adds, changes and removes instance records of the global registry.
options:
  service:
    description:
      - The service that it is an instance of.
    type: str
  version_code:
    description:
      - The version of the service, in quotes, as in C('9.7.0.2').
    type: str
  instance_name:
    description:
      - Its name.
    type: str
  instance_path:
    description:
      - Where it lies. An empty text takes it away.
    type: str
  usage:
    description:
      - What it is used for. An empty text takes it away.
    type: str
  start_at_boot:
    description:
      - Whether it starts with the machine. An empty text takes it away.
    type: raw
  maintenance:
    description:
      - Whether it is under maintenance. An empty text takes it away.
    type: raw
  extra_path:
    description:
      - Another path of it. An empty text takes it away.
    type: str
  extra_name:
    description:
      - Another name of it. An empty text takes it away.
    type: str
  comment:
    description:
      - Its comment. An empty text takes it away.
    type: str
extends_documentation_fragment:
  - rvn.genreg.genreg
  - rvn.genreg.genreg.registry
"""

EXAMPLES = r"""
- name: Two instances with one commit
  rvn.genreg.instance:
    service: RVN
    version_code: "9.7.0.2"
    start_at_boot: true
    items:
      - {instance_name: inst1, instance_path: /home/inst1}
      - {instance_name: inst2, instance_path: /home/inst2}

- name: Under maintenance, unless it starts with the machine by now
  rvn.genreg.instance:
    service: RVN
    version_code: "9.7.0.2"
    instance_name: inst1
    maintenance: true
    if_fields:
      start_at_boot: false
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
      operation: instance set
      path: /var/rvn/global.reg
      type: instance
      service: RVN
      versionCode: 9.7.0.2
      instanceName: inst1
      action: change
      before: {instancePath: /home/inst1}
      after: {instancePath: /home/inst1, startAtBoot: 1}
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
    "instance",
    ["service", "version_code", "instance_name"],
    dict(
        instance_path=dict(type="str"),
        usage=dict(type="str"),
        start_at_boot=dict(type="raw"),
        maintenance=dict(type="raw"),
        extra_path=dict(type="str"),
        extra_name=dict(type="str"),
        comment=dict(type="str"),
    ),
    is_global=True,
    has_value=False,
)


if __name__ == "__main__":
    run(FORM)
