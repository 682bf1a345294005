#!/usr/bin/env bash
# Runs a command beside a real web server and a real proxy, which are its own.
#
#   with_servers.sh <command> [argument...]
#
# nginx and tinyproxy run as the current user, on free ports of the loopback interface and with
# everything they write in a fresh folder below build/servers. They end with this script, also when
# it is killed. The exit code is the command's. The command finds in its environment:
#
#   VELT_HTTP_PORT             nginx
#   VELT_PROXY_PORT            tinyproxy
#   VELT_SERVERS_DIR           the folder: configurations, access.log (a line for each answer: status,
#                              user, "request line", "agent"), proxy.log
#   VELT_SERVERS_DIR_WINDOWS   the folder as programs in Wine see it
#
# In the folder lies "full", a file whose disk is full.
#
# What nginx serves:
#
#   /plain.txt          "plain text\n"
#   /plain.txt.part     the same as /body-1024
#   /empty              nothing
#   /body-<n>           the first n bytes of /large; n is 1, 1024, 8191, 8192 or 8193
#   /large              64 MiB: lines of 64 bytes, each its own number with leading zeros
#   /chunked            as /plain.txt, in chunks
#   /moved              a redirection to /plain.txt
#   /slow               as /large, 256 KiB a second
#   /private/           "private text\n", for the user "user" with the password "secret"
#   everything else     404
set -eu
PATH=$PATH:/usr/sbin # users' paths lack where nginx lies

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
folder=$root/build/servers/$$
rm -rf "$folder"
mkdir -p "$folder/temp" "$root/build/servers"
ln -s /dev/full "$folder/full"
exec 4>&2 # where this script's own complaints go

server_pids=()
end() {
    local pid
    for pid in "${server_pids[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$folder"
}
trap end EXIT
trap 'exit 143' TERM
trap 'exit 130' INT

# What is served is made once.
pages=$root/build/servers/pages
(
    flock 9
    if [ ! -e "$pages/.complete" ]; then
        rm -rf "$pages"
        mkdir -p "$pages/private"
        seq -f '%063.0f' 0 1048575 >"$pages/large"
        for size in 1 1024 8191 8192 8193; do
            head -c "$size" "$pages/large" >"$pages/body-$size"
        done
        echo 'plain text' >"$pages/plain.txt"
        cp "$pages/plain.txt" "$pages/chunked"
        echo 'private text' >"$pages/private/index.html"
        : >"$pages/empty"
        touch "$pages/.complete"
    fi
) 9>"$root/build/servers/pages.lock"

# answer_of <port> <request target>: what comes back for it; fails when nobody listens.
answer_of() {
    local line
    exec 3<>"/dev/tcp/127.0.0.1/$1" || return 1
    printf 'GET %s HTTP/1.0\r\n\r\n' "$2" >&3
    while read -r -t 60 line; do
        printf '%s\n' "$line"
    done <&3
    exec 3>&-
} 2>/dev/null

# start <name> <target> <command...>: starts a server on a free port and waits until it has answered
# with this run's token. configure_<name> writes its configuration for the port. The port is left in
# $port, the process in $server_pids.
start() {
    local name=$1 target=$2 pid try
    shift 2
    for _ in $(seq 30); do
        port=$((20000 + RANDOM % 12000)) # below those that systems give to clients
        "configure_$name" >"$folder/$name.conf"
        # The server dies with this script, even when that is killed.
        setpriv --pdeathsig TERM "$@" </dev/null >>"$folder/$name.log" 2>&1 &
        pid=$!
        for try in $(seq 200); do
            kill -0 "$pid" 2>/dev/null || break # the port was not free
            if answer_of "$port" "$target" | grep -qx "$token"; then
                server_pids+=("$pid")
                return 0
            fi
            sleep 0.02
        done
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    echo "with_servers.sh: $name does not start:" >&4
    tail -n 5 "$folder/$name.log" >&4
    exit 1
}

token=velt-$$-$RANDOM-$RANDOM
echo 'user:{PLAIN}secret' >"$folder/passwords"
configure_nginx() {
    cat <<TEXT
daemon off;
master_process off;
pid $folder/nginx.pid;
error_log $folder/nginx.log;
events {
    worker_connections 256;
}
http {
    log_format answers '\$status \$remote_user "\$request" "\$http_user_agent"';
    access_log $folder/access.log answers;
    client_body_temp_path $folder/temp/body;
    proxy_temp_path $folder/temp/proxy;
    fastcgi_temp_path $folder/temp/fastcgi;
    uwsgi_temp_path $folder/temp/uwsgi;
    scgi_temp_path $folder/temp/scgi;
    default_type text/plain;
    keepalive_requests 100000;
    server {
        listen 127.0.0.1:$port;
        listen 127.0.0.2:$port;
        listen 127.0.0.3:$port;
        root $pages;
        location = /token {
            access_log off;
            return 200 "$token\n";
        }
        location = /chunked {
            # A page that is searched has no length beforehand.
            sub_filter_types *;
            sub_filter 'nowhere in the text' '';
        }
        location = /slow {
            alias $pages/large;
            limit_rate 256k;
        }
        location = /plain.txt.part {
            alias $pages/body-1024;
        }
        location = /moved {
            return 302 /plain.txt;
        }
        location /private/ {
            auth_basic "private";
            auth_basic_user_file $folder/passwords;
        }
    }
}
TEXT
}
configure_tinyproxy() {
    cat <<TEXT
Port $port
Listen 127.0.0.1
Allow 127.0.0.1
PidFile "$folder/tinyproxy.pid"
LogFile "$folder/proxy.log"
LogLevel Connect
MaxClients 50
Timeout 60
TEXT
}

start nginx /token nginx -p "$folder" -c "$folder/nginx.conf" -e "$folder/nginx.log"
export VELT_HTTP_PORT=$port
start tinyproxy "http://127.0.0.1:$VELT_HTTP_PORT/token" tinyproxy -d -c "$folder/tinyproxy.conf"
export VELT_PROXY_PORT=$port
export VELT_SERVERS_DIR=$folder
export VELT_SERVERS_DIR_WINDOWS="Z:${folder//\//\\}"
# The command says itself which proxy it wants.
unset http_proxy https_proxy ftp_proxy all_proxy no_proxy
unset HTTP_PROXY HTTPS_PROXY FTP_PROXY ALL_PROXY NO_PROXY

status=0
"$@" || status=$?
exit "$status"
