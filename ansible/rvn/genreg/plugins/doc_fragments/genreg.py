class ModuleDocFragment:
    DOCUMENTATION = r"""
options:
  state:
    description:
      - C(present) adds the record where there is none, and otherwise sets the fields that are given; all others keep what
        they hold.
      - C(absent) takes the record away. That there is none, or no file, is no failure; of a file that there is not, a
        warning tells.
    type: str
    choices: [present, absent]
    default: present
  if_fields:
    description:
      - What has to stand in the record, by the names of its fields, or nothing is changed and the task fails. C(null)
        stands for a field that is not there.
      - It is no conflict when the registry is as the task asks for already.
    type: dict
  base64:
    description:
      - The names of fields whose values are given in Base64, since their bytes are no UTF-8.
    type: list
    elements: str
    default: []
  items:
    description:
      - Several records instead of one, each with the options of a record. They are changed with one commit, all of them or
        none.
      - What is given beside I(items) holds for each of them that does not say otherwise.
    type: list
    elements: dict
  wait:
    description:
      - How many seconds to wait for a lock that somebody else holds; 0 fails at once.
      - The default is that of C(genreg), 10 seconds unless C(GENREG_WAIT) says otherwise.
    type: float
  genreg:
    description:
      - The tool, where it is not found as C(genreg).
    type: path
    default: genreg
requirements:
  - genreg
  - python >= 3.6
attributes:
  check_mode:
    description: Tells what would change, and writes nothing.
    support: full
  diff_mode:
    description: Shows each changed record as it was and as it is.
    support: full
notes:
  - Names and values reach C(genreg) by its standard input and are in no list of processes. For secrets, set C(no_log) on
    the task.
author:
  - The maintainers of genreg
"""

    FILE = r"""
options:
  path:
    description:
      - The file. It is made when a record is to be there and there is none.
    type: path
    required: true
  parents:
    description:
      - Whether to make the folder of a file that is new.
    type: bool
    default: false
"""

    REGISTRY = r"""
options:
  registry:
    description:
      - The registry, where it is not the one that C(genreg path) tells.
    type: path
"""

    VALUE = r"""
options:
  if_value:
    description:
      - As I(if_fields), the value alone. That of a service is as in C(80/tcp), that of an inittab entry as in
        C(2345:respawn:/opt/x).
    type: raw
"""
