# TLS of a desk: an authority of its own, certificates of the broker and of who may connect, and what
# each of these may do. Sourced; the caller sets run_dir and sn.
# shellcheck shell=bash disable=SC2154

# The options with which a program of mosquitto-clients connects as the person at the desk.
# shellcheck disable=SC2034
tls_of_person=" --cafile $run_dir/tls/ca.pem --cert $run_dir/tls/person.pem --key $run_dir/tls/person.key"

# usage: tls_options NAME   into $tls_options: those of the agent and the console
tls_options() { tls_options=(--ca "$run_dir/tls/ca.pem" --cert "$run_dir/tls/$1.pem" --key "$run_dir/tls/$1.key"); }

new_key_for=(openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes)

# usage: issue_certificate NAME EXTENSION...   in the present directory
issue_certificate() {
  "${new_key_for[@]}" -subj "/CN=$1" -keyout "$1.key" -out "$1.csr"
  printf '%s\n' "basicConstraints = CA:FALSE" "${@:2}" >"$1.ext"
  openssl x509 -req -in "$1.csr" -CA ca.pem -CAkey ca.key -CAcreateserial -days 365 \
    -extfile "$1.ext" -out "$1.pem"
  rm "$1.csr" "$1.ext"
}

make_certificates() {
  "${new_key_for[@]}" -x509 -days 366 -subj "/CN=Authority of the desk $sn" -keyout ca.key -out ca.pem &&
    issue_certificate server "extendedKeyUsage = serverAuth" "subjectAltName = IP:127.0.0.1,DNS:localhost" &&
    issue_certificate "$sn" "extendedKeyUsage = clientAuth" &&
    issue_certificate console "extendedKeyUsage = clientAuth" &&
    issue_certificate person "extendedKeyUsage = clientAuth"
}

# Whether each certificate is there and lasts for another week.
certificates_last() {
  local name
  for name in ca server "$sn" console person; do
    openssl x509 -in "$run_dir/tls/$name.pem" -noout -checkend 604800 >/dev/null 2>&1 || return 1
  done
}

# Certificates stay from run to run.
prepare_certificates() {
  local log=$log_dir/certificates.err
  certificates_last && return
  rm -rf "$run_dir/tls"
  mkdir -p "$run_dir/tls"
  (umask 077 && cd "$run_dir/tls" && make_certificates) >"$log" 2>&1 ||
    fail "run: no certificates can be made: $(tail -n 1 "$log")"
}

# The broker's settings, after those that it has without TLS. A user is the common name of a certificate.
write_tls_settings() {
  local tls
  tls=$(realpath "$run_dir/tls")
  cat >"$tls/acl" <<ACL
user console
topic read cameras/#
topic write cameras/+/request/#

user person
topic read cameras/#
topic write cameras/+/request/#

pattern write cameras/%u/message/#
pattern write cameras/%u/response/#
pattern write cameras/%u/status
pattern read cameras/%u/request/#
ACL
  cat >>"$run_dir/mosquitto.conf" <<CONF
user $(id -un)
allow_anonymous false
acl_file $tls/acl
cafile $tls/ca.pem
certfile $tls/server.pem
keyfile $tls/server.key
require_certificate true
use_identity_as_username true
CONF
}
