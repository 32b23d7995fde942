# shellcheck shell=bash disable=SC2034 # the variables are for the scripts that source this
# Sourced by the Slurm recipes: how a node stands, as scontrol shows it.

# read_node NODE: sets node_info to scontrol's description of the node, node_state to its State
# (e.g. IDLE+DRAIN) and node_reason to its Reason without the "[user@time]" Slurm appends; of a
# reason that someone gave several lines, its first line.
# Returns scontrol's status; on failure node_info holds scontrol's message. scontrol gets
# SCONTROL_SECONDS (default 10) to answer: a hung slurmctld must not hang the caller.
read_node() {
  node_info=$(timeout -k 1 "${SCONTROL_SECONDS:-10}" scontrol show node "$1" 2>&1) || {
    local status=$?
    [ $status -ne 124 ] && [ $status -ne 137 ] || node_info="no answer within ${SCONTROL_SECONDS:-10} s"
    return $status
  }
  node_state=$(printf '%s\n' "$node_info" |
    awk '{ for (i = 1; i <= NF; i++) if ($i ~ /^State=/) { print substr($i, 7); exit } }')
  node_reason=$(printf '%s\n' "$node_info" |
    sed -n '/^[[:space:]]*Reason=/ { s/^[[:space:]]*Reason=//; s/ \[[^]]*\]$//; p; q; }')
}
