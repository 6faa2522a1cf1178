# What the benchmark scripts share. Sourced with the root of the tree as the working directory.
# shellcheck shell=bash

programs=build/bench/bench

build_bench() {
    . packaging/packages.sh
    install_missing "${build_packages[@]}" "${host_packages[@]}" "${bench_packages[@]}"
    local log=build/bench.log
    mkdir -p build
    if ! { cmake --preset release -B build/bench -DTAMRIX_BENCH=ON && cmake --build build/bench; } >"$log" 2>&1; then
        cat "$log" >&2
        exit 1
    fi
}

# new_host: a private host with our program, the bench programs in /opt/ovt/bench and sibling tools that do nothing.
new_host() {
    host=
    trap 'rm -rf "$host"' EXIT
    trap 'exit 130' INT TERM
    host=$(mktemp -d "${TMPDIR:-/tmp}/tamrix-bench.XXXXXX")
    tests/support/private-host create "$host" build/bench/tamrix
    mkdir -p "$host/opt/ovt/bench"
    cp "$programs"/{spawn,capture,children,interpreter,rapidjson,simdjson} "$host/opt/ovt/bench/"
}

inside() {
    tests/support/private-host exec "$host" -- "$@"
}

# registry COUNT: a registry of that many handlers, as a busy host's custom and package handlers would look.
registry() {
    /usr/bin/python3 bench/registry.py "$1" >"$host/etc/ovt/php_versions.json"
}
