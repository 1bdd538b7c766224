# Completion of trovik-reset(1) for fish.
set -l commands list check reset resume explain report

function __trovik_reset_devices
    trovik-reset list --json 2>/dev/null | string replace -rf '.*"port":"([^"]*)","product":"([^"]*)","state":"attached".*' '$1\t$2'
end

function __trovik_reset_stages
    for stage in quit reboot gone back hold clear resume back-again identified-again
        echo $stage=
    end
end

complete -c trovik-reset -f
complete -c trovik-reset -n "not __fish_seen_subcommand_from $commands" -a list -d 'Name the devices that are attached'
complete -c trovik-reset -n "not __fish_seen_subcommand_from $commands" -a check -d 'Open and identify devices'
complete -c trovik-reset -n "not __fish_seen_subcommand_from $commands" -a reset -d 'Erase the settings of devices'
complete -c trovik-reset -n "not __fish_seen_subcommand_from $commands" -a resume -d 'Let a device start that was left held'
complete -c trovik-reset -n "not __fish_seen_subcommand_from $commands" -a explain -d "Say why a device can't be opened"
complete -c trovik-reset -n "not __fish_seen_subcommand_from $commands" -a report -d 'Collect what support needs'
complete -c trovik-reset -s h -l help -d 'Show the options'
complete -c trovik-reset -l json -d 'Write events as JSON lines'
complete -c trovik-reset -l simulate -d 'Work on simulated devices' -a '(trovik-reset --scenarios 2>/dev/null)'
complete -c trovik-reset -l scenarios -d 'List the scenarios'
complete -c trovik-reset -n '__fish_seen_subcommand_from list' -l watch -d 'Tell of devices that come and go'
complete -c trovik-reset -n '__fish_seen_subcommand_from check reset resume explain' -a '(__trovik_reset_devices)'
complete -c trovik-reset -n '__fish_seen_subcommand_from report' -F
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l all -d 'All devices that are attached'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l each -d 'Every device once, as it is plugged in'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l count -x -d 'End after so many'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l yes -d 'Do not ask'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l wait -x -d 'Seconds to wait for a device'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l limit -x -d 'How long a stage may take' -a '(__trovik_reset_stages)'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l jobs -x -d 'So many at a time'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l retries -x -d 'New attempts before the clear'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l keep-station -d 'Do not ask Trovik Station to quit'
complete -c trovik-reset -n '__fish_seen_subcommand_from reset' -l trace -x -d 'A file of events for each device' -a '(__fish_complete_directories)'
