"""Calls every method of the development service through its WSDL with an ordinary SOAP client.

usage: soap_client.py WSDL-ADDRESS
"""

import sys

import zeep


def expect(condition, what):
    if not condition:
        sys.exit(f"not as expected: {what}")


def main():
    service = zeep.Client(sys.argv[1]).service

    opened = service.CreateAccount(
        firstName="Zoë", userName="zeep & co", password="p<w>\"'é", emailID="z@example.com")
    expect(opened == "Success", f"CreateAccount gave {opened}")
    expect(service.CreateAccount(firstName="", userName="zeep & co", password="x",
                                 emailID="z@example.com") == "UserNameAlreadyExists",
           "a taken name must be refused")

    signed_in = service.Authenticate(userName="zeep & co", password="p<w>\"'é")
    expect(signed_in.AuthenticateResult == "true", f"Authenticate gave {signed_in}")
    expect(signed_in.accountStatus == "Active", f"Authenticate gave {signed_in}")
    expect(signed_in.message is None, "an explicit nil must arrive as nothing")
    expect(service.Authenticate(userName="zeep & co", password="no").AuthenticateResult == "false",
           "a wrong password must be refused")

    trial = service.CreateTrialAccount(userName="trial", password="p", email="nowhere")
    expect(trial.Code == "InvalidEmailAddress" and trial.Message, f"CreateTrialAccount gave {trial}")

    box = service.EncryptString(sourceString="häuser")
    expect(box != "häuser", "the text must be encrypted")
    expect(service.DecryptString(sourceString=box) == "häuser", "the text must come back")
    try:
        service.DecryptString(sourceString="00")
        sys.exit("a text of somebody else must be refused")
    except zeep.exceptions.Fault as fault:
        expect("was not encrypted by this service" in fault.message, f"the fault says {fault.message}")

    print("every method answered as expected")


main()
