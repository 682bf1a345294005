#!/usr/bin/env bash
# Signs programs, libraries and Windows Installer packages.
set -euo pipefail
export LC_ALL=C

usage() {
    cat <<'TEXT'
usage: sign.sh --pkcs12 FILE [--password-file FILE] [--timestamp URL] [--ca FILE] FILE...

Signs .dll, .exe and .msi files where they lie, with the certificate and key of a PKCS#12 file.

  --pkcs12 FILE          the publisher's certificate, its key, and the certificates between it and
                         its authority's
  --password-file FILE   has the PKCS#12 file's password; without it the environment variable
                         VELT_SIGN_PASSWORD has it. It never stands in a command line
  --timestamp URL        a time stamp server (RFC 3161). Without a time stamp the signatures end
                         with the certificate
  --ca FILE              certificates of authorities (PEM) to verify by, beside those in the PKCS#12
                         file and the system's

All files are signed as copies, and verified, before the first one takes its place: either all are
signed in the end, or all are what they were. Files that are signed already get the new signature
instead.

A signature carries the time at which it was made, and a time stamp another maker's: two signings
never make the same bytes. So compare builds before they are signed, sign programs before they are
packed, and take checksums and the list of materials of what is signed.
TEXT
}

fail() {
    printf 'sign.sh: %s\n' "$@" >&2
    exit 1
}

description=VeltHTTPClient # what Windows shows when it asks whether to let a package in
system_authorities=/etc/ssl/certs/ca-certificates.crt

pkcs12=
password_file=
timestamp=()
authorities=
files=()
while [ $# -gt 0 ]; do
    case $1 in
    --help | -h) usage && exit 0 ;;
    --pkcs12 | --password-file | --timestamp | --ca)
        if [ $# -lt 2 ]; then
            echo "sign.sh: $1 needs a value" >&2
            exit 2
        fi
        case $1 in
        --pkcs12) pkcs12=$2 ;;
        --password-file) password_file=$2 ;;
        --timestamp) timestamp=(-ts "$2") ;;
        --ca) authorities=$2 ;;
        esac
        shift 2
        ;;
    --) shift && files+=("$@") && break ;;
    -*) usage >&2 && exit 2 ;;
    *) files+=("$1") && shift ;;
    esac
done
if [ -z "$pkcs12" ] || [ ${#files[@]} -eq 0 ]; then
    usage >&2
    exit 2
fi

for tool in osslsigncode openssl; do
    command -v "$tool" >/dev/null || fail "$tool is missing: Debian's package has the same name"
done
for file in "$pkcs12" ${authorities:+"$authorities"} "${files[@]}"; do
    [ -e "$file" ] || fail "$file: no such file"
    [ -r "$file" ] && [ ! -d "$file" ] || fail "$file: cannot be read"
done
for i in "${!files[@]}"; do
    files[i]=$(realpath -- "${files[i]}") # a link stays one
    case $(od -An -tx1 -N8 "${files[i]}" | tr -d ' \n') in
    4d5a*) ;;
    d0cf11e0a1b11ae1) ;;
    *) fail "${files[i]}: neither a program nor a Windows Installer package" ;;
    esac
    [ -w "$(dirname "${files[i]}")" ] || fail "${files[i]}: its folder cannot be written to"
done

umask 077
work=$(mktemp -d)
signed=()
trap 'rm -rf "$work" "${signed[@]%/*}"' EXIT

# A pipe can be read once only, and more than one program has to.
if [ -n "$password_file" ]; then
    [ -r "$password_file" ] && [ ! -d "$password_file" ] || fail "$password_file: cannot be read"
    if [ ! -f "$password_file" ]; then
        cat "$password_file" >"$work/password"
        password_file=$work/password
    fi
elif [ -n "${VELT_SIGN_PASSWORD+set}" ]; then
    password_file=$work/password
    printf '%s\n' "$VELT_SIGN_PASSWORD" >"$password_file" # by the shell itself
    unset VELT_SIGN_PASSWORD
else
    fail "no password: name its file with --password-file, or set VELT_SIGN_PASSWORD"
fi

# The certificates that come with the key, to verify by. Old files are encrypted in a way that has to
# be asked for.
if ! openssl pkcs12 -in "$pkcs12" -passin "file:$password_file" -nokeys \
    -out "$work/authorities.pem" 2>"$work/errors" &&
    ! openssl pkcs12 -legacy -in "$pkcs12" -passin "file:$password_file" -nokeys \
        -out "$work/authorities.pem" 2>>"$work/errors"; then
    if grep -qi 'mac verify\|invalid password' "$work/errors"; then
        fail "$pkcs12: the password is wrong"
    fi
    fail "$pkcs12: no PKCS#12 file that can be read"
fi
for file in ${authorities:+"$authorities"} "$system_authorities"; do
    [ ! -r "$file" ] || cat "$file" >>"$work/authorities.pem"
done

# run <what> <command...>: its output is shown when it fails. It is not always asked for its exit code:
# a time stamp server that cannot be reached leaves some versions content.
run() {
    local what=$1
    shift
    "$@" >"$work/output" 2>&1 </dev/null && ! grep -q '^Failed$' "$work/output" && return
    sed 's/^/    /' "$work/output" >&2
    if grep -qi 'timestamping failed\|curl failure\|http failure' "$work/output"; then
        fail "$what: the time stamp server ${timestamp[1]} gave no time stamp"
    elif grep -qi 'unable to get.*issuer\|self.signed certificate\|no trusted' "$work/output"; then
        fail "$what: its certificate's authority is not known here; name it with --ca"
    fi
    fail "$what"
}

for file in "${files[@]}"; do
    # Beside the file, so that moving it there is one step. It must not exist before.
    folder=$(mktemp -d "$(dirname "$file")/.sign.XXXXXX")
    copy=$folder/$(basename "$file")
    signed+=("$copy")
    run "$file cannot be signed" osslsigncode sign -pkcs12 "$pkcs12" -readpass "$password_file" \
        -h sha256 -n "$description" "${timestamp[@]}" -in "$file" -out "$copy"
    run "the signature of $file cannot be verified" osslsigncode verify -in "$copy" \
        -CAfile "$work/authorities.pem" -TSA-CAfile "$work/authorities.pem"
    if [ ${#timestamp[@]} -gt 0 ] && grep -q 'Timestamp is not available' "$work/output"; then
        fail "$file cannot be signed: the time stamp server ${timestamp[1]} gave no time stamp"
    fi
    chmod --reference="$file" "$copy"
done
for i in "${!files[@]}"; do
    mv -f -- "${signed[i]}" "${files[i]}"
    echo "signed: ${files[i]}"
done
