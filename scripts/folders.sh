# Sourced: which of the component's folders each one may include. Arrows point towards foundation/.
#
#   foundation <- internet <- connection <- update <- service <- server
#   foundation <- ui, collection                             <- server

declare -A velt_may_include=(
    [foundation]="foundation"
    [internet]="internet foundation"
    [connection]="connection internet foundation"
    [update]="update connection internet foundation"
    [service]="service update connection internet foundation"
    [ui]="ui foundation"
    [collection]="collection foundation"
    [server]="server service update connection internet ui collection foundation"
)

# velt_labels_of <path>...: the labels of the tests that a change of these files of the project
# concerns, one a line; "all" where it can concern any.
velt_labels_of() {
    local path folder reader
    for path in "$@"; do
        folder=${path#*/}
        folder=${folder%%/*}
        case $path in
        src/*/*)
            for reader in "${!velt_may_include[@]}"; do
                case " ${velt_may_include[$reader]} " in
                *" $folder "*) echo "$reader" ;;
                esac
            done
            # The programs are made of the component's folders, and the packages of everything.
            [ "$folder" = installer ] || echo tools
            echo installer
            ;;
        tests/fuzz/*) echo fuzz ;;
        tests/support/*) echo all ;;
        tests/samples/* | samples/*) printf '%s\n' samples installer ;;
        tests/docs/* | docs/* | *.md) printf '%s\n' docs installer ;;
        tests/benchmarks/* | bench | package | run | .*) ;;
        tests/*/*) echo "$folder" ;;
        *) echo all ;;
        esac
    done | sort -u
}
