# Completes the command lines of trendtool and trendcsv in bash. The names of devices, parameters
# and intervals come from the database that the command line names.

# Prints what trendtool lists of the database and the device on the command line.
_trendtool_list() {
  [[ $db ]] && trendtool list -x "$db" "$@" 2>/dev/null
}

# Prints the options of a subcommand, or with an option the words that can follow it.
_trendtool_help() {
  local line
  trendtool "$1" --help 2>/dev/null | while IFS= read -r line; do
    if [[ ${2-} ]]; then
      [[ $line == "  $2 WORD "*': '* ]] && tr -d ' ' <<<"${line##*: }" | tr , '\n'
    elif [[ $line =~ ^\ \ (-[a-z],)?(--[a-z-]+) ]]; then
      printf '%s\n' "${BASH_REMATCH[2]}"
      [[ ! ${BASH_REMATCH[1]} ]] || printf '%s\n' "${BASH_REMATCH[1]%,}"
    fi
  done
}

_trendtool_names() {
  local subcommand=${COMP_WORDS[1]}
  case $before in
    -d | --device) _trendtool_list --names ;;
    -p | --parameter) [[ $device ]] && _trendtool_list --names -d "$device" ;;
    -i | --interval)
      [[ $device ]] && _trendtool_list --format csv -d "$device" | sed -n 's/^interval,\([0-9]*\),.*/\1/p'
      ;;
    --*) _trendtool_help "$subcommand" "$before" ;;
  esac
}

_trendtool_options() {
  if [[ $program == trendcsv ]]; then
    printf '%s\n' -x -d -p -i -s -e -m -o -c -f -a -r -n -nh -t -w -y -u -b -pv -sp -sc -sl -J -v
  elif ((COMP_CWORD == 1)); then
    trendtool --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z][a-z]*\).*/\1/p'
  else
    _trendtool_help "${COMP_WORDS[1]}"
  fi
}

_trendtool() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  local program=${COMP_WORDS[0]##*/} db='' device='' i name names
  for ((i = 1; i < COMP_CWORD - 1; ++i)); do
    case ${COMP_WORDS[i]} in
      -x | --database) db=${COMP_WORDS[i + 1]/#\~\//$HOME/} ;;
      -d | --device) device=${COMP_WORDS[i + 1]} ;;
    esac
  done
  COMPREPLY=()
  case $before in
    -x | --database | -f | --file)
      # bash then completes the names of files.
      compopt -o default 2>/dev/null
      return
      ;;
  esac
  names=$(_trendtool_names)
  [[ $names || $before == -[dpi] ]] || names=$(_trendtool_options)
  while IFS= read -r name; do
    [[ $name && $name == "$word"* ]] && COMPREPLY+=("$(printf %q "$name")")
  done <<<"$names"
  # The arguments of some subcommands are files.
  ((${#COMPREPLY[@]})) || [[ $word == -* ]] || compopt -o default 2>/dev/null
}

complete -F _trendtool trendtool trendcsv
