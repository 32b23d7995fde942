@echo off
rem corebench's idle-time run on Windows, started by the task of corebench-task.xml with three
rem arguments: the records folder (a UNC path on a share), the folder for corebench.prom
rem (windows_exporter's textfile collector folder) and the corebench test. It runs the
rem corebench-fleet.exe beside it; a time stamp and its messages go to
rem %ProgramData%\corebench\corebench-task.log.
setlocal
set "LOG=%ProgramData%\corebench\corebench-task.log"
if not exist "%ProgramData%\corebench" mkdir "%ProgramData%\corebench"
>>"%LOG%" echo %DATE% %TIME% corebench-fleet run --out %1 --prom %2 -- %3
"%~dp0corebench-fleet.exe" run --out "%~1" --prom "%~2" -- %3 >nul 2>>"%LOG%"
exit /b %ERRORLEVEL%
