# A job for a cluster is refused at once where there is none.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 1
unset SLURM_CONF SLURM_CONF_SERVER
mkdir bin

# Without Slurm's programs.
for verb in run submit; do
  PATH=$TMP/work/bin run 2 "$verb" sketch shot_0001.txt --engine slurm
  err_is <<'END'
trovik: error: there is no program "sbatch" along PATH
hint: jobs on a cluster need Slurm's own programs; on Debian they are in slurm-client
END
  out_is_empty
done

# With those of a machine that was never configured, as they speak there.
for name in sbatch squeue scancel scontrol sinfo; do
  cat >"bin/$name" <<END
#!/bin/sh
echo "$name: s_p_parse_file: file \\"\$SLURM_CONF\\" is empty" >&2
echo "$name: error: ClusterName needs to be specified" >&2
echo "$name: fatal: Unable to process configuration file" >&2
exit 1
END
  chmod +x "bin/$name"
done
: >empty.conf
SLURM_CONF=$TMP/work/empty.conf
export SLURM_CONF
for verb in run submit; do
  PATH=$TMP/work/bin:$PATH run 2 "$verb" sketch shot_0001.txt --engine slurm
  err_is <<'END'
trovik: error: Slurm's programs know of no cluster: scontrol ended with exit code 1: s_p_parse_file: file "TMP/work/empty.conf" is empty; ClusterName needs to be specified; Unable to process configuration file
hint: log in where jobs can be submitted; Slurm's configuration is /etc/slurm/slurm.conf, or the file that SLURM_CONF names
END
  out_is_empty
done

# With a configuration that is not there, for which they wait a minute.
SLURM_CONF=$TMP/work/none.conf
PATH=$TMP/work/bin:$PATH run 2 run sketch shot_0001.txt --engine slurm
err_is <<'END'
trovik: error: Slurm's programs know of no cluster: SLURM_CONF names "TMP/work/none.conf": No such file or directory
hint: log in where jobs can be submitted; Slurm's configuration is /etc/slurm/slurm.conf, or the file that SLURM_CONF names
END
run 0 jobs --json
out_has '"jobs": []'
