#!/usr/bin/env bash
# Signs a library, a program and a package with a certificate of the test's own, and verifies them;
# and sees to it that whatever goes wrong leaves the files as they were.
#
#   sign_test.sh <source folder> <work folder> <build folder>
set -euo pipefail
export LC_ALL=C
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
sign=$1/src/installer/sign.sh
work=$2
build=$3
secret="open sesame $RANDOM$RANDOM"

rm -rf "$work"
mkdir -p "$work"
cd "$work"
server=
trap '[ -z "$server" ] || kill "$server"' EXIT

# certificate <name> <subject> <purpose>: made by the test's authority.
certificate() {
    openssl req -newkey rsa:2048 -nodes -keyout "$1.key" -out "$1.csr" -subj "/CN=$2"
    printf 'keyUsage=digitalSignature\nextendedKeyUsage=critical,%s\n' "$3" >"$1.ext"
    openssl x509 -req -in "$1.csr" -CA authority.pem -CAkey authority.key -CAcreateserial -days 2 \
        -extfile "$1.ext" -out "$1.pem"
}
{
    openssl req -x509 -newkey rsa:2048 -nodes -keyout authority.key -out authority.pem -days 2 \
        -subj '/CN=Authority of the test' -addext 'keyUsage=keyCertSign'
    certificate publisher 'Publisher of the test' codeSigning
    certificate stamper 'Time stamps of the test' timeStamping
    printf '%s\n' "$secret" >password
    printf '%s\n' 'close sesame' >wrong
    openssl pkcs12 -export -inkey publisher.key -in publisher.pem -passout file:password \
        -out publisher.p12
    # As older systems write them.
    openssl pkcs12 -export -legacy -inkey publisher.key -in publisher.pem -passout file:password \
        -out old.p12
} 2>openssl.log

cp "$build/bin/VeltHTTPClient12OEM.dll" library.dll
cp "$build/bin/velt.exe" 'a program.exe'
chmod 750 'a program.exe'
msibuild package.msi -s 'Package of the test' 'Publisher' 'Intel;1033' \
    '{4D7F0B52-6B1F-4C05-9D5B-7F0C3A2B1E11}'
printf '%s\t%s\r\n' Property Value s72 l0 Property Property ProductName Package >Property.idt
msibuild package.msi -i Property.idt
files=(library.dll 'a program.exe' package.msi)
mkdir unsigned
cp -p "${files[@]}" unsigned/

# Before the real programs in PATH: what they are called with, and what their environment has.
mkdir recorded
for tool in osslsigncode openssl; do
    cat >recorded/$tool <<TEXT
#!/usr/bin/env bash
printf '%s\n' "\$@" >>"$work/recorded/arguments"
export >>"$work/recorded/environment"
[ "$tool" = openssl ] || tr '\0' '\n' < <(cat /proc/[0-9]*/cmdline 2>/dev/null) >>"$work/recorded/processes"
exec $(command -v $tool) "\$@"
TEXT
    chmod +x recorded/$tool
done
# A program that does not write what it should.
mkdir spoiling
cat >spoiling/osslsigncode <<TEXT
#!/usr/bin/env bash
$(command -v osslsigncode) "\$@" || exit
[ "\$1" != sign ] || printf 'spoilt' | dd of="\${@: -1}" bs=1 seek=4096 conv=notrunc status=none
TEXT
chmod +x spoiling/osslsigncode
mkdir few
ln -s "$(command -v bash)" few/bash

# verified <file>: what osslsigncode says of it, in one line.
verified() {
    osslsigncode verify -in "$1" -CAfile authority.pem -TSA-CAfile authority.pem 2>&1 |
        grep -x 'Signature verification: .*' | sort -u | paste -sd ' ' || true
}
# unchanged: yes when no file differs from what it was, and nothing else is left beside them.
unchanged() {
    local file
    for file in "${files[@]}"; do
        cmp "$file" "unsigned/$file" || return 0
    done
    [ -z "$(find . -maxdepth 1 -name '.sign*')" ] && echo yes
}
# refused <what> <text> <command...>: the command fails, says why and changes nothing.
refused() {
    local what=$1 text=$2 status=0
    shift 2
    "$@" >said 2>&1 || status=$?
    expect "$what: fails" 1 "$status"
    expect "$what: says why" 1 "$(grep -cF "$text" said || true)"
    expect "$what: the files are what they were" yes "$(unchanged)"
}
with=(--pkcs12 publisher.p12 --password-file password)

refused "a wrong password" "publisher.p12: the password is wrong" \
    "$sign" --pkcs12 publisher.p12 --password-file wrong --ca authority.pem "${files[@]}"
refused "a wrong password from the environment" "publisher.p12: the password is wrong" \
    env VELT_SIGN_PASSWORD=wrong "$sign" --pkcs12 publisher.p12 --ca authority.pem "${files[@]}"
refused "no password" "no password: " \
    env -u VELT_SIGN_PASSWORD "$sign" --pkcs12 publisher.p12 "${files[@]}"
refused "no file of the password" "missing: cannot be read" \
    "$sign" --pkcs12 publisher.p12 --password-file missing "${files[@]}"
refused "no certificate" "missing.p12: no such file" \
    "$sign" --pkcs12 missing.p12 --password-file password "${files[@]}"
refused "another file than a certificate's" "authority.pem: no PKCS#12 file" \
    "$sign" --pkcs12 authority.pem --password-file password "${files[@]}"
refused "a missing file after others" "missing.exe: no such file" \
    "$sign" "${with[@]}" --ca authority.pem "${files[@]}" missing.exe
refused "a file of another kind" "password: neither a program nor" \
    "$sign" "${with[@]}" --ca authority.pem "${files[@]}" password
printf 'MZ, and nothing that follows' >broken.exe
refused "a broken program after others" "broken.exe cannot be signed" \
    "$sign" "${with[@]}" --ca authority.pem "${files[@]}" broken.exe
refused "an authority that nobody knows" "its certificate's authority is not known here" \
    "$sign" "${with[@]}" "${files[@]}"
refused "a time stamp server that cannot be reached" "http://127.0.0.1:1/ gave no time stamp" \
    "$sign" "${with[@]}" --ca authority.pem --timestamp http://127.0.0.1:1/ "${files[@]}"
refused "a copy that was not written as it should be" "cannot be verified" \
    env PATH="$work/spoiling:$PATH" "$sign" "${with[@]}" --ca authority.pem "${files[@]}"
refused "no osslsigncode" "osslsigncode is missing" \
    env PATH="$work/few" "$sign" "${with[@]}" "${files[@]}"
expect "a call without files is not understood" 2 "$("$sign" "${with[@]}" >/dev/null 2>&1; echo $?)"

mkdir temporary
env PATH="$work/recorded:$PATH" TMPDIR="$work/temporary" VELT_SIGN_PASSWORD="$secret" \
    "$sign" --pkcs12 publisher.p12 --ca authority.pem "${files[@]}"
for file in "${files[@]}"; do
    expect "$file is signed" "Signature verification: ok" "$(verified "$file")"
    expect "$file is signed by its publisher, for the product, with SHA-256" 3 "$(
        osslsigncode verify -in "$file" -CAfile authority.pem 2>&1 |
            grep -E 'Subject: ?/?CN ?= ?Publisher of the test$|Text description: VeltHTTPClient$|^Message digest algorithm *: SHA256$' |
            sort -u | sed 's/ *: */:/' | sort -u | wc -l
    )"
    expect "$file keeps its rights" "$(stat -c %a "unsigned/$file")" "$(stat -c %a "$file")"
done
expect "the command lines are recorded" yes \
    "$(grep -qx -e -readpass recorded/arguments && [ -s recorded/processes ] && echo yes)"
expect "no command line has the password, and no other program's environment" 0 "$(
    cat recorded/{arguments,processes,environment} | grep -cF "$secret" || true
)"
expect "nothing of the password is left" "" "$(ls -A temporary)"
expect "nothing is left beside the files" "" "$(find . -maxdepth 1 -name '.sign*')"

"$sign" --pkcs12 old.p12 --password-file <(cat password) --ca authority.pem "${files[@]}" >/dev/null
for file in "${files[@]}"; do
    expect "$file is signed again, by an older file and a password from a pipe" \
        "Signature verification: ok" "$(verified "$file")"
    expect "$file has one signature" 1 \
        "$(osslsigncode verify -in "$file" -CAfile authority.pem 2>&1 | grep -c '^Signature verification')"
done

# A time stamp server of the test's own.
cat >stamper.cnf <<TEXT
[tsa]
default_tsa = tsa_settings
[tsa_settings]
serial = $work/stamper.serial
crypto_device = builtin
signer_cert = $work/stamper.pem
certs = $work/authority.pem
signer_key = $work/stamper.key
signer_digest = sha256
default_policy = 1.2.3.4
digests = sha256
ess_cert_id_alg = sha256
TEXT
echo 01 >stamper.serial
cat >stamper.py <<'TEXT'
import http.server
import subprocess


class Stamper(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        with open("request.tsq", "wb") as file:
            file.write(self.rfile.read(int(self.headers["Content-Length"])))
        reply = subprocess.run(["openssl", "ts", "-reply", "-config", "stamper.cnf", "-queryfile",
                                "request.tsq"], stdout=subprocess.PIPE, check=True).stdout
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(reply)))
        self.end_headers()
        self.wfile.write(reply)


server = http.server.HTTPServer(("127.0.0.1", 0), Stamper)
print(server.server_port, flush=True)
server.serve_forever()
TEXT
mkfifo port
python3 stamper.py >port 2>stamper.log &
server=$!
read -r port_number <port
"$sign" "${with[@]}" --ca authority.pem --timestamp "http://127.0.0.1:$port_number/" "${files[@]}" >/dev/null
for file in "${files[@]}"; do
    said=$(osslsigncode verify -in "$file" -CAfile authority.pem -TSA-CAfile authority.pem 2>&1 || true)
    expect "$file is signed with a time stamp" "Signature verification: ok" \
        "$(grep -x 'Signature verification: .*' <<<"$said")"
    expect "$file's time stamp is the server's" 1 \
        "$(grep -c 'Timestamp Server Signature verification: ok' <<<"$said" || true)"
done
expect "the package is a package" Package "$(msiinfo export package.msi Property | awk -F'\t' '/^ProductName/ { print $2 }' | tr -d '\r')"
exit "$((failures > 0))"
