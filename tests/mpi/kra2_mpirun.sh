#!/bin/sh
# kra2-mpi under mpirun, in place of kra2 for the end-to-end driver: $KRA2_MPI_RANKS local
# ranks (default 2) that talk over TCP as ranks on separate machines do. With
# KRA2_MPI_LAST_RANK_WDIR the last rank works in that folder instead (a machine that does not
# see the files). $KRA2_MPI_PROGRAM is kra2-mpi, $KRA2_MPIRUN the launcher.
set -eu
ranks=${KRA2_MPI_RANKS:-2}
# Open MPI refuses to start as root without both of these (CI runs as root).
export OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1
launch="$KRA2_MPIRUN -q --oversubscribe --allow-run-as-root --mca btl self,tcp"
if [ -n "${KRA2_MPI_LAST_RANK_WDIR:-}" ]; then
  exec $launch -np $((ranks - 1)) "$KRA2_MPI_PROGRAM" "$@" \
    : -np 1 -wdir "$KRA2_MPI_LAST_RANK_WDIR" "$KRA2_MPI_PROGRAM" "$@"
fi
exec $launch -np "$ranks" "$KRA2_MPI_PROGRAM" "$@"
