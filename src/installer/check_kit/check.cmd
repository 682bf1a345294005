@echo off
rem Checks the component on this machine: what the system answers, and the component's own tests.
rem
rem   check.cmd [/quick | /tests] [/admin] [/nowait]
rem
rem Double click, and wait. What comes of it is in the folder "report": summary.txt to read, and
rem report.json to send. No administrator is needed, and nothing is installed. With /quick, only the
rem system is asked, which takes a minute or two; with /tests, it is not; with /admin, from a prompt
rem that runs as administrator, what needs one is run, too, and else skipped by name; with /nowait, it
rem ends without a key.
rem
rem Each test is run by facts.exe, which makes the registry and the temporary files what they were
rem before, also when this window is closed midway.
setlocal
cd /d "%~dp0"
set quick=
set nowait=
set admin=
set tests=
for %%a in (%*) do if /i "%%a"=="/quick" set quick=1
for %%a in (%*) do if /i "%%a"=="/nowait" set nowait=1
for %%a in (%*) do if /i "%%a"=="/admin" set admin=1
for %%a in (%*) do if /i "%%a"=="/tests" set tests=1
if not exist report mkdir report
set summary=report\summary.txt
set json=report\report.json
echo VeltHTTPClient check> "%summary%"
echo {"editions": [> "%json%"
set comma=
set failed=0

set kinds=x86
if /i "%PROCESSOR_ARCHITECTURE%"=="AMD64" set kinds=x86 x64
if /i "%PROCESSOR_ARCHITEW6432%"=="AMD64" set kinds=x86 x64
for %%k in (%kinds%) do if exist %%k\facts.exe call :edition %%k

echo ]}>> "%json%"
echo.>> "%summary%"
if "%quick%"=="" type left_out.txt >> "%summary%"
echo.>> "%summary%"
if %failed%==0 echo everything ended well>> "%summary%"
if not %failed%==0 >> "%summary%" echo tests that failed: %failed%
type "%summary%"
echo.
echo The report is in %~dp0report
if "%nowait%"=="" pause
exit /b %failed%

rem :edition <x86 or x64>
:edition
echo null> report\facts-%1.json
if "%tests%"=="" call :facts %1
echo %comma%{"kind": "%1", "facts":>> "%json%"
set comma=,
type report\facts-%1.json >> "%json%"
echo ,"tests": [>> "%json%"
set between=
echo.>> "%summary%"
echo %1: tests>> "%summary%"
if "%quick%"=="" for %%t in (%1\tests\*.exe) do call :test %1 %%~nt tests
if "%quick%"=="" for %%t in (%1\tests\admin\*.exe) do call :admin_test %1 %%~nt
echo ]}>> "%json%"
exit /b 0

rem :facts <x86 or x64>
:facts
echo %1: asking the system
echo.>> "%summary%"
echo %1: facts>> "%summary%"
del report\facts-%1.json
%1\facts.exe --json report\facts-%1.json > report\facts-%1.txt 2>&1
findstr /b "differs" report\facts-%1.txt >> "%summary%"
if exist report\facts-%1.json exit /b 0
echo FAILED: the facts did not end>> "%summary%"
set /a failed=failed+1
echo null> report\facts-%1.json
exit /b 0

rem :admin_test <x86 or x64> <name>
:admin_test
set why=
if "%admin%"=="" set why=start check.cmd /admin as administrator
%1\facts.exe --elevated
if not "%admin%"=="" if errorlevel 1 set why=this prompt does not run as administrator
if not "%why%"=="" echo skipped %2, which needs an administrator: %why%>> "%summary%"
if "%why%"=="" call :test %1 %2 tests\admin
exit /b 0

rem :test <x86 or x64> <name> <folder>
:test
echo %1: %2
rem The code that a test program ends with when it has come to its end and all is well: 0 is also that
rem of one which was ended midway.
set VELT_PASSED_CODE=42
%1\facts.exe --run %1\%3\%2.exe > report\%1-%2.txt 2>&1
set code=%errorlevel%
set VELT_PASSED_CODE=
if %code%==42 echo ok      %2>> "%summary%"
if not %code%==42 echo FAILED  %2, see report\%1-%2.txt>> "%summary%"
if not %code%==42 set /a failed=failed+1
echo %between%{"name": "%2", "code": %code%}>> "%json%"
set between=,
exit /b 0
