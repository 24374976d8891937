# Completion of kxdata7 in bash: the tool itself says what fits.
_kxdata7() {
    local current=${COMP_WORDS[COMP_CWORD]} words=() candidate
    # Bash takes the = of --option=value for a word of its own.
    [[ $current == = ]] && current=
    for candidate in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $candidate == = ]] || words+=("$candidate")
    done
    COMPREPLY=()
    while IFS=$'\t' read -r candidate _; do
        if [[ -z $candidate ]]; then
            compopt -o filenames
            mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$current")
        else
            COMPREPLY+=("$(printf %q "$candidate")")
        fi
    done < <("${COMP_WORDS[0]}" --complete "${words[@]}" "${current//\\/}" 2>/dev/null)
}
complete -F _kxdata7 kxdata7
