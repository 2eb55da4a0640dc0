#!/usr/bin/env bash
# Installs what Ordalis needs, builds it optimised and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release
exec build/release/src/ordalis "$@"
