"""check_tree.py layering|endpoints|links ROOT: prints every fault of the tree; fails if there is one."""

import sys

import tree_rules

RULES = {"layering": tree_rules.layering_faults, "endpoints": tree_rules.endpoint_faults,
         "links": tree_rules.link_faults}

faults = list(RULES[sys.argv[1]](sys.argv[2]))
print("\n".join(faults) or "no fault")
sys.exit(1 if faults else 0)
