# conversation.ps1 [PORT]: runs one conversation of server and client, in the folder of this script.
# PORT, such as COM5, has a loop plug and must return the bytes sent; without PORT, a port that does not
# exist must be refused. Ends with an error when anything differs.
param([string] $Port)
$ErrorActionPreference = 'Stop'
Set-Location $PSScriptRoot

# Runs the client, whose exit code must be $code and whose output must contain $text.
function Ask([string[]] $words, [int] $code, [string] $text) {
    "> tarnwheel-client $words"
    $answer = (& cmd /c "bin\tarnwheel-client.exe $words 2>&1" | Out-String).TrimEnd()
    $answer
    if ($LASTEXITCODE -ne $code) { throw "exit code $LASTEXITCODE instead of $code" }
    if (-not $answer.Contains($text)) { throw "no '$text' in the answer" }
}

$server = Start-Process bin\tarnwheel-server.exe '--nologo', '--log-level', 'debug' -PassThru -NoNewWindow
$handle = $server.Handle  # without this the exit code is not kept
try {
    $deadline = (Get-Date).AddSeconds(10)
    do {
        & bin\tarnwheel-client.exe list . | Out-Null
    } until ($LASTEXITCODE -eq 0 -or $server.HasExited -or (Get-Date) -gt $deadline)
    Ask 'list', '.' 0 $Port
    Ask 'discover' 0 ''
    if ($Port) { Ask 'send', '.', $Port, 'hello' 0 'hello' }
    else { Ask 'send', '.', 'COM250', 'hello' 3 'COM250 does not exist (0x80070002)' }

    # Any account may stop the server, see docs/administration.md.
    $stop = [Threading.EventWaitHandle]::OpenExisting(
        'Global\kelvarine_{E7093B5D-2C4F-4A61-B8E2-9D05F3A7C614}_v1.01', 'Modify')
    $null = $stop.Set()
    if (-not $server.WaitForExit(10000)) { throw 'the server does not stop' }
    if ($server.ExitCode -ne 0) { throw "the server ended with $($server.ExitCode)" }
}
finally {
    if (-not $server.HasExited) { $server.Kill() }
}
'passed'
