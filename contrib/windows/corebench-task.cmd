@echo off
rem corebench's idle-time run on Windows, started by the task of corebench-task.xml: runs the
rem corebench-fleet.exe beside this file, with the records in a shared folder and corebench.prom
rem in windows_exporter's textfile collector folder; its messages go to corebench-task.log here.
rem Settings: the three lines below, or the same variables set for the task's user.
setlocal
rem The records folder, a UNC path that every node writes to (each into a folder of its own).
if not defined COREBENCH_RECORDS set "COREBENCH_RECORDS=\\fileserver\corebench\records"
if not defined COREBENCH_PROM set "COREBENCH_PROM=C:\Program Files\windows_exporter\textfile_inputs"
rem The corebench test: All takes about a minute on every CPU, SingleSpeed a few seconds on one.
if not defined COREBENCH_TEST set "COREBENCH_TEST=All"
>>"%~dp0corebench-task.log" echo %DATE% %TIME% corebench-fleet run -- %COREBENCH_TEST%
"%~dp0corebench-fleet.exe" run --out "%COREBENCH_RECORDS%" --prom "%COREBENCH_PROM%" -- %COREBENCH_TEST% >nul 2>>"%~dp0corebench-task.log"
exit /b %ERRORLEVEL%
