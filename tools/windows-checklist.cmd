@echo off
rem windows-checklist.cmd [PORT]: runs the steps of windows-checklist.md that need no manual action.
rem PORT, such as COM5, has a loop plug. Needs administrator rights. Changes the registered service
rem and its parameters. The folder results receives the table and the output of each step; the exit
rem code is the number of failed steps.
setlocal
cd /d "%~dp0"
if not exist results\. mkdir results
if exist results\table.txt del results\table.txt
set failed=0
set key=HKLM\Software\Quorvane\Tarnwheel Server 1.01
set client=bin\tarnwheel-client.exe
set server=bin\tarnwheel-server.exe
%server% --uninstall-service >results\remove-old.txt 2>&1
reg delete "%key%" /f >nul 2>&1

for %%f in (tests\*_test.exe) do call :program %%~nf
if not exist tests\system_test.exe goto service
call :system "CommandLine.*:Log.*:Stop.*" "system"

:service
%server% --install-service >results\install.txt 2>&1
call :expect install %errorlevel% 0
rem As after an installation that failed at this point.
reg delete "%key%" /f >nul 2>&1
%server% --install-service >results\install-again.txt 2>&1
call :expect install-again %errorlevel% 183 "Service already installed"
reg query "%key%" /v Dummy >results\parameters.txt 2>&1
call :expect parameters %errorlevel% 0
reg query HKLM\System\CurrentControlSet\Services\qrvtwsrv >results\registration.txt 2>&1
call :expect registration %errorlevel% 0 "LocalService"
net start qrvtwsrv >results\start.txt 2>&1
call :expect start %errorlevel% 0
%client% list . >results\list.txt 2>&1
call :expect list %errorlevel% 0
%client% discover >results\discover.txt 2>&1
call :expect discover %errorlevel% 0
%server% --nologo >results\second-server.txt 2>&1
call :expect second-server %errorlevel% -2147024713 "0x800700b7"
if not "%1"=="" call :line %1

reg add "%key%" /v SharedPorts /t REG_BINARY /d 01000000FFFF0000 /f >nul
call :restart
%client% send . COM1 x >results\not-shared.txt 2>&1
call :expect not-shared "" "" "(0x80070005)"
reg add "%key%" /v SharedPorts /t REG_BINARY /d 030000000100000002000000 /f >nul
call :restart
%client% list . >results\bad-ports.txt 2>&1
call :expect bad-ports "" "" "No server runs on this machine"
reg add "%key%" /v SharedPorts /t REG_DWORD /d 0 /f >nul
call :restart
%client% list . >results\bad-type.txt 2>&1
call :expect bad-type "" "" "No server runs on this machine"
reg add "%key%" /v SharedPorts /t REG_BINARY /d 00000000 /f >nul
reg add "%key%" /v AutoDiscovery /t REG_DWORD /d 0 /f >nul
call :restart
%client% list . >results\list-again.txt 2>&1
call :expect list-again %errorlevel% 0
%client% discover --timeout 1000 >results\no-discovery.txt 2>&1
call :expect no-discovery "" "" "No server answered within 1000 ms"
reg add "%key%" /v SecurityDescriptor /t REG_SZ /d "D:" /f >nul
call :restart
%client% list . >results\nobody-allowed.txt 2>&1
call :expect nobody-allowed "" "" "(0x80070005)"
reg add "%key%" /v SecurityDescriptor /t REG_SZ /d "nonsense" /f >nul
call :restart
%client% list . >results\bad-descriptor.txt 2>&1
call :expect bad-descriptor "" "" "No server runs on this machine"

reg delete "%key%" /f >nul
call :restart
%server% --uninstall-service >results\uninstall.txt 2>&1
call :expect uninstall %errorlevel% 0
%server% --uninstall-service >results\uninstall-again.txt 2>&1
call :expect uninstall-again %errorlevel% 1060 "Error opening service: 0x00000424"
%client% list . >results\uninstalled.txt 2>&1
call :expect uninstalled "" "" "No server runs on this machine"
echo %failed% failed
>>results\table.txt echo %failed% failed
exit /b %failed%

rem program NAME: runs a test program, which must end with 0.
:program
if "%1"=="system_test" goto :eof
tests\%1.exe >results\%1.txt 2>&1
call :expect %1 %errorlevel% 0
goto :eof

rem system FILTER NAME: runs those system tests that work on Windows.
:system
tests\system_test.exe "--gtest_filter=%~1" >"results\%~2.txt" 2>&1
call :expect "%~2" %errorlevel% 0
goto :eof

rem line PORT: runs the checks of a line with a loop plug.
:line
bin\tarnwheel-line-check.exe . %1 >results\line.txt 2>&1
call :expect line %errorlevel% 0
goto :eof

rem Waits until the service has stopped: net stop may return sooner.
:restart
net stop qrvtwsrv >nul 2>&1
set checks=0
:stopping
sc query qrvtwsrv | find "STOPPED" >nul
if not errorlevel 1 goto stopped
set /a checks=checks+1
if %checks% lss 100 goto stopping
:stopped
net start qrvtwsrv >nul 2>&1
goto :eof

rem expect NAME CODE EXPECTED [TEXT]: checks the exit code, and that results\NAME.txt contains TEXT.
:expect
if not "%~2"=="%~3" goto wrong_code
if "%~4"=="" goto passed
find "%~4" "results\%~1.txt" >nul
if errorlevel 1 goto wrong_text
:passed
echo PASS  %~1
>>results\table.txt echo PASS  %~1
goto :eof
:wrong_code
set row=FAIL  %~1: exit code %~2 instead of %~3
goto failure
:wrong_text
set row=FAIL  %~1: does not print %~4
:failure
set /a failed=failed+1
echo %row%
>>results\table.txt echo %row%
type "results\%~1.txt"
goto :eof
