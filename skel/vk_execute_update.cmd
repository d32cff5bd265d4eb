@echo off
rem vk_execute_update.cmd - installs an update package on this Windows client.
rem
rem   vk_execute_update.cmd PACKAGE [-f] [-s] [-v LEVEL] [-o "OPTIONS"]
rem
rem PACKAGE is the name that the backup server was given; the server has copied
rem the file below the work directory under that name. Beside it may lie a detached
rem OpenPGP signature (.sig or .asc), which must then be good under one of the two
rem product keys of the work directory (needs gpgv, and gpg for armoured keys).
rem The script takes both over into a directory of its own before it does anything
rem with them, so that nobody's clean-up takes them away from it, and removes that
rem directory at its end. While it works it writes a line every VELKA_ALIVE seconds.
rem
rem What is given is text: the names of variables are expanded only where quotes stand
rem around them, and the installer's line is formed behind the parser ("!NAME!" in an
rem interpreter of its own), so that no character of an option text means anything.
rem Quotes come doubled inside the quotes of an argument.
rem
rem The last line of output is STATUS=SUCCESS^|WARNING^|ERROR MSG="text". The exit
rem status is the installer's own, unchanged: 3010 and its like ask for a restart.
rem 1: another update is running; 2: the package was not given to an installer.
rem
rem   VELKA_WORK       work directory (default: work beside this script's directory)
rem   VELKA_INSTALLER  program that installs the file named by its first argument
rem                    (default: msiexec for .msi, the package itself for .exe)
rem   VELKA_SIGNATURE  required: refuse packages without a signature
rem   VELKA_ALIVE      seconds between two lines while it works (default: 45)
if "%~1"=="--alive" goto alive
setlocal EnableExtensions DisableDelayedExpansion
set "PACKAGE="
set "OPTIONS="
set "FORCE="
set "KIND=package"
set "LEVEL=0"

:arguments
if "%~1"=="" goto arguments_done
if /i "%~1"=="-f" goto option_f
if /i "%~1"=="-s" goto option_s
if /i "%~1"=="-v" goto option_v
if /i "%~1"=="-o" goto option_o
if not defined PACKAGE goto positional
set "TEXT=unexpected argument %~1"
goto refuse
:option_f
set "FORCE=1"
shift
goto arguments
:option_s
set "KIND=service pack"
shift
goto arguments
:option_v
set "LEVEL=%~2"
shift
shift
goto arguments
:option_o
set "OPTIONS="
if not "%~2"=="" set OPTIONS=%2
shift
shift
goto arguments
:positional
set "PACKAGE=%~1"
shift
goto arguments

:arguments_done
set "TEXT=no package named; usage: vk_execute_update.cmd PACKAGE [-f] [-s] [-v LEVEL] [-o OPTIONS]"
if not defined PACKAGE goto refuse
set "PACKAGE=%PACKAGE:"=%"
set "TEXT=package name %PACKAGE% leads out of the work directory"
if not "%PACKAGE:..=%"=="%PACKAGE%" goto refuse

rem A quote comes as two, and single ones stand only around per-cent signs, which the
rem server keeps from meaning something so; two at the end are such ones as well. Behind
rem a caret each, the other characters that mean something lose that by one reading
rem without quotes.
if not defined OPTIONS goto options_done
set OPTIONS=%OPTIONS%''end''
set OPTIONS=%OPTIONS:"""''end''=''vk''%
set OPTIONS=%OPTIONS:""''end''=%
set OPTIONS=%OPTIONS:""=''vk''%
set "OPTIONS=%OPTIONS:"=%"
set "OPTIONS=%OPTIONS:''end''=%"
set "OPTIONS=%OPTIONS:^=^^%"
set "OPTIONS=%OPTIONS:&=^&%"
set "OPTIONS=%OPTIONS:|=^|%"
set "OPTIONS=%OPTIONS:<=^<%"
set "OPTIONS=%OPTIONS:>=^>%"
set OPTIONS=%OPTIONS:''vk''=^"%
:options_done
set "MORE="
if defined OPTIONS set "MORE=!OPTIONS!"

set "WORK=%VELKA_WORK%"
if not defined WORK set "WORK=%~dp0..\work"
if "%WORK:~-1%"=="\" set "WORK=%WORK:~0,-1%"
set "TEXT=there is no work directory %WORK%"
if not exist "%WORK%\" goto refuse

rem A server path has slashes; of a path with a drive only what follows it counts.
set "RELATIVE=%PACKAGE:/=\%"
if "%RELATIVE:~1,1%"==":" set "RELATIVE=%RELATIVE:~2%"
if "%RELATIVE:~0,1%"=="\" set "RELATIVE=%RELATIVE:~1%"
set "FILE=%WORK%\%RELATIVE%"
set "TEXT=package file %FILE% is missing"
if not exist "%FILE%" goto refuse
set "LOG=%WORK%\vk_execute_update.log"

if not defined VELKA_ALIVE set "VELKA_ALIVE=45"
set "OWN=%WORK%\vk_execute_update.tmp"
set "ALIVE=%WORK%\vk_execute_update.alive%RANDOM%"
echo alive 2>nul >"%ALIVE%"
set "TEXT=cannot write in the work directory %WORK%"
if not exist "%ALIVE%" goto refuse
start "" /b "%COMSPEC%" /d /c "%~f0" --alive

rem A file that is open for writing cannot be opened so a second time: that is the
rem lock, and it ends with this process.
set "RC="
call :locked 2>nul 9>>"%WORK%\vk_execute_update.lock"
del /q "%ALIVE%" 2>nul
if defined RC goto judge
echo STATUS=WARNING MSG="another update is running on this client; nothing was done"
exit /b 1

:judge
if not "%RC%"=="-" goto installed
:refuse
set "TEXT=%TEXT:"='%"
echo STATUS=ERROR MSG="%TEXT%"
exit /b 2

:installed
for %%S in (1641 1644 1645 1652 1653 1654 3010) do if "%RC%"=="%%S" goto restart
if "%RC%"=="0" goto success
echo STATUS=ERROR MSG="installation of %PACKAGE% failed with status %RC%; see %LOG%"
exit /b %RC%
:restart
echo STATUS=WARNING MSG="%KIND% %PACKAGE% installed; a restart is required (status %RC%)"
exit /b %RC%
:success
echo STATUS=SUCCESS MSG="%KIND% %PACKAGE% installed"
exit /b 0

rem ---- under the lock: sets RC to the installer's status, or to - and TEXT ----
:locked
set "RC=-"
if exist "%OWN%\" rd /s /q "%OWN%"
md "%OWN%" 2>nul
set "TEXT=cannot take package %PACKAGE% over into %OWN%"
for %%F in ("%FILE%") do set "TAKEN=%OWN%\%%~nxF"
for %%S in (.sig .asc "") do call :take_over %%S
if not exist "%TAKEN%" exit /b 0
set "FILE=%TAKEN%"
call :check
if "%TEXT%"=="" call :install
rd /s /q "%OWN%" 2>nul
exit /b 0

rem A link costs neither time nor room; some file systems know none.
:take_over
if not exist "%FILE%%~1" exit /b 0
mklink /h "%TAKEN%%~1" "%FILE%%~1" >nul 2>&1 || copy /b /y "%FILE%%~1" "%TAKEN%%~1" >nul 2>&1
exit /b 0

rem Says that the script lives as long as its file is there, four hours at most.
:alive
set "N=0"
:alive_next
ping -n 2 127.0.0.1 >nul 2>&1
if not exist "%ALIVE%" exit /b 0
set /a "N=N+1"
set /a "REST=N %% VELKA_ALIVE"
if "%REST%"=="0" echo still at work after %N% s: "%PACKAGE%"
if %N% lss 14400 goto alive_next
exit /b 0

rem ---- the signature: TEXT is empty when the package may be installed ----
:check
set "SIG="
if exist "%FILE%.asc" set "SIG=%FILE%.asc"
if exist "%FILE%.sig" set "SIG=%FILE%.sig"
if defined SIG goto signed
set "TEXT=package %PACKAGE% has no signature, and this client requires one"
if /i not "%VELKA_SIGNATURE%"=="required" set "TEXT="
exit /b 0

:signed
set "RINGS="
call :keyring "%WORK%\qir-gpg.key" "%WORK%\vk_execute_update.k1"
call :keyring "%WORK%\qir-gpg-2026.key" "%WORK%\vk_execute_update.k2"
set "TEXT=signature of %PACKAGE% cannot be checked: no usable key file in %WORK%"
if not defined RINGS exit /b 0
set "VERDICT=%WORK%\vk_execute_update.gpg"
gpgv --status-fd 1 %RINGS% "%SIG%" "%FILE%" >"%VERDICT%" 2>&1
set "GPGV=%ERRORLEVEL%"
del /q "%WORK%\vk_execute_update.k1" "%WORK%\vk_execute_update.k2" 2>nul
set "TEXT=signature of %PACKAGE% cannot be checked: gpgv is not installed"
if "%GPGV%"=="9009" exit /b 0
set "TEXT=signature of %PACKAGE% is bad: the file is not the one that was signed"
findstr /b /c:"[GNUPG:] BADSIG " "%VERDICT%" >nul && exit /b 0
set "TEXT=signature of %PACKAGE% was not made with a valid key of the product"
findstr /b /c:"[GNUPG:] GOODSIG " "%VERDICT%" >nul || exit /b 0
findstr /b /c:"[GNUPG:] VALIDSIG " "%VERDICT%" >nul || exit /b 0
del /q "%VERDICT%" 2>nul
set "TEXT="
exit /b 0

:install
set "EXTENSION=%FILE:~-4%"
if defined VELKA_INSTALLER goto install_named
if /i "%EXTENSION%"==".msi" goto install_msi
if /i "%EXTENSION%"==".exe" goto install_exe
set "TEXT=package %PACKAGE% is neither .msi nor .exe"
exit /b 0
:install_named
"%COMSPEC%" /d /v:on /s /c ""!VELKA_INSTALLER!" "!FILE!" %MORE%" >"%LOG%" 2>&1 <nul
goto install_end
:install_msi
rem "start /wait": msiexec is a window program, which is not waited for otherwise.
set "REINSTALL="
if defined FORCE set "REINSTALL=REINSTALL=ALL REINSTALLMODE=vamus"
"%COMSPEC%" /d /v:on /s /c "start "" /wait msiexec /i "!FILE!" /qn /norestart /l* "!LOG!" %REINSTALL% %MORE%"
goto install_end
:install_exe
"%COMSPEC%" /d /v:on /s /c "start "" /wait "!FILE!" /quiet /norestart /log "!LOG!" %MORE%"
:install_end
set "RC=%ERRORLEVEL%"
exit /b 0

rem gpgv reads binary keyrings only: an armoured key file is unpacked first.
:keyring
if not exist "%~1" exit /b 0
copy /y "%~1" "%~2" >nul 2>&1
findstr /b /c:"-----BEGIN PGP" "%~1" >nul 2>&1 && gpg --batch --yes --quiet -o "%~2" --dearmor "%~1" >nul 2>&1
if exist "%~2" set RINGS=%RINGS% --keyring "%~2"
exit /b 0
